// Descriptors that travel between processes over a UNIX socket (unix(7), SCM_RIGHTS).
#ifndef QX_HOST_PASS_FDS_H
#define QX_HOST_PASS_FDS_H

#include <sys/types.h>

#include <span>
#include <string_view>
#include <vector>

#include "host/fd.h"

namespace host {

/// No message carries more.
inline constexpr size_t kMaxPassedFds = 16;

/// Sends bytes, at least one, and copies of the descriptors with the first of them. Returns
/// how many bytes went, or -1 with errno; a peer that is gone raises no signal. An
/// interrupted call is repeated, here and below.
ssize_t sendWithFds(int socket, std::string_view bytes, std::span<const int> fds);

/// Receives up to `size` bytes, and adds the descriptors that came with them to `fds`, all
/// close-on-exec. flags: of recvmsg(2). Returns the count of bytes, 0 at the end, or -1 with
/// errno.
ssize_t receiveWithFds(int socket, void* buffer, size_t size, std::vector<Fd>& fds, int flags = 0);

}  // namespace host

#endif
