#include "share/rsync/failure.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "host/copy_report.h"

namespace qxrsync {

namespace {

void say(std::string_view prefix, const std::string& text) {
  const std::string line = std::string(prefix) + text + "\n";
  // Nobody can be told that nobody can be told.
  if (::write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

}  // namespace

void complain(const std::string& text) { say("rsync: ", text); }

void inform(const std::string& text) {
  const char* report = std::getenv(host::kCopyReportVariable);
  if (report != nullptr && *report != '\0') say(kNotePrefix, text);
}

Failure systemFailure(int status, const std::string& what) {
  const int error = errno;
  return {status, what + ": " + std::strerror(error)};
}

}  // namespace qxrsync
