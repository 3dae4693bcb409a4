#include "agent/system/log_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "host/clock.h"
#include "host/text.h"

namespace agent {

namespace {

// Stays open until the end of the program.
std::atomic<int> file{-1};

}  // namespace

void openLogFile(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0600);
  if (fd < 0) {
    throw std::runtime_error("cannot write the log '" + path + "': " + strerror(errno));
  }
  file = fd;
}

bool hasLogFile() { return file >= 0; }

void writeLog(const std::string& text) {
  if (!hasLogFile()) return;
  const std::string now = host::utcNow();
  std::string lines;
  for (const std::string_view line : host::splitLines(text)) {
    (lines += now + " ").append(line) += "\n";
  }
  // In one piece, as others may append, too.
  if (write(file, lines.data(), lines.size()) < 0) return;
}

}  // namespace agent
