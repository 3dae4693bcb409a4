#include "expand/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace Expand {

int setFDNonblock(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags == -1) return -1;
  return fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

ssize_t readFD(int fd, void* buf, std::size_t n) {
  char* const bytes = static_cast<char*>(buf);
  std::size_t done = 0;
  while (done < n) {
    const ssize_t got = read(fd, bytes + done, n - done);
    if (got == 0) break;
    if (got > 0) {
      done += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(done);
}

ssize_t writeFD(int fd, const void* buf, std::size_t n) {
  const char* const bytes = static_cast<const char*>(buf);
  std::size_t done = 0;
  while (done < n) {
    const ssize_t put = write(fd, bytes + done, n - done);
    if (put >= 0) {
      done += static_cast<std::size_t>(put);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(done);
}

int swapFD(int a, int b) {
  const int aFlags = fcntl(a, F_GETFD);
  const int bFlags = fcntl(b, F_GETFD);
  if (aFlags == -1 || bFlags == -1) return -1;
  if (a == b) return 0;
  const int spare = fcntl(a, F_DUPFD_CLOEXEC, 0);
  if (spare == -1) return -1;
  const int result = dup3(b, a, bFlags & FD_CLOEXEC ? O_CLOEXEC : 0) == -1 ||
                             dup3(spare, b, aFlags & FD_CLOEXEC ? O_CLOEXEC : 0) == -1
                         ? -1
                         : 0;
  close(spare);
  return result;
}

}  // namespace Expand
