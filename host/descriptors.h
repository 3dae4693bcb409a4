// Descriptors that are made in pairs, and those that a new program is not to have.
#ifndef QX_HOST_DESCRIPTORS_H
#define QX_HOST_DESCRIPTORS_H

#include <initializer_list>

#include "host/fd.h"

namespace host {

/// Two descriptors that are connected, both close-on-exec.
struct FdPair {
  Fd first;   ///< a pipe's reading end
  Fd second;  ///< a pipe's writing end

  explicit operator bool() const { return bool(second); }
};

/// A pipe. Invalid with errno set on failure.
FdPair makePipe();

/// Both ends of a stream between UNIX sockets. Invalid with errno set on failure.
FdPair makeSocketPair();

/// Closes every descriptor from `first` on but the `kept` ones, of which negative ones
/// are none. Safe between fork and exec.
void closeAllBut(std::initializer_list<int> kept, int first = 0);

}  // namespace host

#endif
