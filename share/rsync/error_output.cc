#include "share/rsync/error_output.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "host/error.h"
#include "host/file.h"
#include "share/rsync/descriptor.h"
#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

constexpr mode_t kReportMode = 0600;

}  // namespace

ErrorOutput::ErrorOutput(const std::string& destination) : problems_(destination) {
  const char* path = std::getenv(host::kCopyReportVariable);
  if (path == nullptr || *path == '\0') return;
  if (*path != '/')
    throw Failure(kExitSyntax, std::string("'") + path + "' in " + host::kCopyReportVariable +
                                   " is not an absolute path");
  path_ = path;
  if (::unlink(path) != 0 && errno != ENOENT)
    throw systemFailure(kExitSystem, "cannot remove the report '" + path_ + "'");
  pipe_ = makePipe();
  enlargePipe(pipe_.second.get(), kPipeSize);
  setNonBlocking(pipe_.first.get(), true);
}

void ErrorOutput::acceptNotes() {
  acceptsNotes_ = true;
  problems_.acceptNotes();
}

// Nobody reads it: no reason to stop the transfer.
void ErrorOutput::passLines(std::string_view bytes) {
  line_ += bytes;
  std::string passed;
  for (size_t end = 0; (end = line_.find('\n')) != line_.npos; line_.erase(0, end + 1)) {
    if (!line_.starts_with(kNotePrefix)) passed += line_.substr(0, end + 1);
  }
  host::writeAll(STDERR_FILENO, passed);
}

void ErrorOutput::pass() {
  if (path_.empty()) return;
  std::array<char, 65536> buffer;
  while (true) {
    const ssize_t count = ::read(pipe_.first.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    const std::string_view bytes(buffer.data(), static_cast<size_t>(count));
    problems_.feed(bytes);
    if (acceptsNotes_)
      passLines(bytes);
    else
      host::writeAll(STDERR_FILENO, bytes);  // as above
  }
}

void ErrorOutput::conclude(int status) {
  if (path_.empty()) return;
  pass();
  if (!line_.empty()) passLines("\n");
  if (status != 0 && status != kExitPartial && status != kExitVanished) return;
  try {
    host::replaceFile(path_, formatCopyReport(problems_.report(status)), kReportMode);
  } catch (const host::Error& error) {
    complain(error.what());  // the copy is as good as it was
  }
}

}  // namespace qxrsync
