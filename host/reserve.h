// The part of a disk that a migration leaves free.
#ifndef QX_HOST_RESERVE_H
#define QX_HOST_RESERVE_H

#include "host/shell_vars.h"

namespace host {

/// RESERVE of the host's settings, or its default: percent of the blocks and of the
/// inodes of the file system that a private area is on. Throws Error (kBadConfig) when
/// it is not a whole number from 0 to 50.
int reservePercent(const ShellVars& settings);

/// That many percent of `total`, rounded up. 0 for less than nothing. Also for the program
/// that watches the copy, which has nothing else of this.
inline long long reserveOf(long long total, int percent) {
  if (total <= 0) return 0;
  return total / 100 * percent + (total % 100 * percent + 99) / 100;
}

}  // namespace host

#endif
