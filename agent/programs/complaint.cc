#include "agent/programs/complaint.h"

#include <unistd.h>

#include <cstdio>

#include "agent/plan/plan_text.h"
#include "agent/programs/paint.h"
#include "agent/programs/terminal.h"
#include "agent/system/log_file.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

constexpr std::string_view kName = "qxmigrate:";

}  // namespace

std::string complaintText(const std::string& text, size_t columns) {
  const std::string lines = std::string(kName) + " " + host::visibleLines(text);
  if (columns == 0) return lines + "\n";
  std::string broken;
  for (const std::string_view line : host::splitLines(lines)) {
    const std::string indent = broken.empty() ? "" : "    ";
    broken += wrapped(indent, "    ", std::string(line), columns);
  }
  return broken;
}

void complain(const std::string& text) {
  const std::string lines = complaintText(text, columnsOf(STDERR_FILENO));
  writeLog(complaintText(text, 0));
  const Tone tone = text.starts_with("warning:") ? Tone::kCaution : Tone::kBad;
  const std::string rest = lines.substr(kName.size());
  fputs((painted(kName, tone, STDERR_FILENO) + rest).c_str(), stderr);
}

}  // namespace agent
