// Operations on file descriptors. They report failure by -1 with errno set and
// never throw.
#ifndef QX_EXPAND_DESCRIPTORS_H
#define QX_EXPAND_DESCRIPTORS_H

#include <sys/types.h>

#include <cstddef>

#include "expand/export.h"

namespace Expand {

/// Adds O_NONBLOCK to the status flags of `fd`. Returns -1 on failure.
EXPAND_API int setFDNonblock(int fd);

/// Reads until `n` bytes have arrived or the file ends, going on after signals.
/// Returns the number of bytes read, which is below `n` only at end of file, or
/// -1; what had been read before the failure is then lost.
EXPAND_API ssize_t readFD(int fd, void* buf, std::size_t n);

/// Writes all `n` bytes, going on after signals. Returns `n`, or -1.
EXPAND_API ssize_t writeFD(int fd, const void* buf, std::size_t n);

/// Exchanges what two descriptor numbers refer to; the close-on-exec flags move
/// with it. Returns 0; or -1, and nothing is changed, when one of them is not
/// open or no third descriptor is free.
EXPAND_API int swapFD(int a, int b);

/// Writes a line "fd #NUMBER: FLAGS" with the status flags in octal to standard
/// error for every open descriptor. For debugging: it looks at each number up to
/// the process's limit.
EXPAND_API void dumpOpenFDs();

}  // namespace Expand

#endif  // QX_EXPAND_DESCRIPTORS_H
