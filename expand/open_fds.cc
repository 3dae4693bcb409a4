#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "expand/descriptors.h"

namespace Expand {

// Standard error is where a diagnostic belongs, and it is unbuffered: the lines
// come out also when the process is about to die.
void dumpOpenFDs() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == -1) {
    std::fprintf(stderr, "ERROR: Can't get max number of open fds: %s\n", std::strerror(errno));
    return;
  }
  const int end = limit.rlim_cur > INT_MAX ? INT_MAX : static_cast<int>(limit.rlim_cur);
  for (int fd = 0; fd < end; ++fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags != -1) std::fprintf(stderr, "fd #%d: %o\n", fd, static_cast<unsigned>(flags));
  }
}

}  // namespace Expand
