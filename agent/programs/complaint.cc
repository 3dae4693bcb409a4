#include "agent/programs/complaint.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "agent/plan/plan_text.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

constexpr size_t kUsualColumns = 80;
constexpr size_t kFewestColumns = 40;

size_t columnsOf(int fd) {
  if (!isatty(fd)) return 0;
  winsize size = {};
  if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return std::max<size_t>(size.ws_col, kFewestColumns);
}

}  // namespace

std::string complaintText(const std::string& text, size_t columns) {
  const std::string lines = "qxmigrate: " + host::visibleLines(text);
  if (columns == 0) return lines + "\n";
  std::string broken;
  for (const std::string_view line : host::splitLines(lines)) {
    const std::string indent = broken.empty() ? "" : "    ";
    broken += wrapped(indent, "    ", std::string(line), columns);
  }
  return broken;
}

void complain(const std::string& text) {
  fputs(complaintText(text, columnsOf(STDERR_FILENO)).c_str(), stderr);
}

}  // namespace agent
