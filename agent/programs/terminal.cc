#include "agent/programs/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace agent {

namespace {

constexpr size_t kUsualColumns = 80;
constexpr size_t kFewestColumns = 40;

}  // namespace

size_t columnsOf(int fd) {
  if (!isatty(fd)) return 0;
  winsize size = {};
  if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return std::max<size_t>(size.ws_col, kFewestColumns);
}

}  // namespace agent
