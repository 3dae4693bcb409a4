#include "agent/programs/complaint.h"

#include <unistd.h>

#include <cstdio>

#include "agent/plan/plan_text.h"
#include "agent/programs/terminal.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

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
