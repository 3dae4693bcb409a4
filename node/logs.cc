#include "node/logs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

#include "host/error.h"
#include "host/file.h"
#include "host/visible.h"
#include "node/run_record.h"

namespace node {
namespace {

constexpr std::chrono::milliseconds kPause(200);

/// A line without what colours it and moves the cursor, as boot messages have it. What
/// else a guest may have sent to drive a terminal is made visible.
std::string fitToShow(std::string_view line) {
  std::string plain;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\x1b' && line.substr(i + 1).starts_with('[')) {
      i = std::min(line.find_first_not_of("0123456789;?", i + 2), line.size());
    } else if (line[i] != '\r') {
      plain += line[i];
    }
  }
  return host::visibleLine(plain);
}

bool isSameFile(const Fd& fd, const struct stat& other) {
  struct stat own;
  return fd && fstat(fd.get(), &own) == 0 && own.st_dev == other.st_dev &&
         own.st_ino == other.st_ino;
}

void readOn(const Fd& fd, const std::string& path, std::string& text) {
  char buffer[16384];
  for (;;) {
    const ssize_t count = read(fd.get(), buffer, sizeof buffer);
    if (count == 0) return;
    if (count > 0) {
      text.append(buffer, static_cast<size_t>(count));
    } else if (errno != EINTR) {
      failErrno("cannot read %s", path.c_str());
    }
  }
}

}  // namespace

std::vector<std::string> Log::lines() {
  if (fd_) {
    readOn(fd_, path_, text_);
  } else {
    text_ = readFile(path_ + kOlder).value_or("");
  }
  struct stat now;
  if (stat(path_.c_str(), &now) == 0 && !isSameFile(fd_, now)) {
    fd_.reset(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd_) failErrno("cannot open %s", path_.c_str());
    readOn(fd_, path_, text_);
  }
  std::vector<std::string> ended;
  size_t at = 0;
  for (size_t end = 0; (end = text_.find('\n', at)) != text_.npos; at = end + 1) {
    ended.push_back(fitToShow(std::string_view(text_).substr(at, end - at)));
  }
  text_.erase(0, at);
  return ended;
}

std::string Log::rest() const { return fitToShow(text_); }

void showLogs(unsigned id, size_t most, bool follow) {
  std::array<Log, 2> logs{Log(lxcPlace(id, kLxcLog)), Log(lxcPlace(id, kConsoleLog))};
  if (std::none_of(logs.begin(), logs.end(), [](const Log& log) { return exists(log.path()); })) {
    fail(ExitCode::kNotFound,
         "container %u was not started since this host was: there is neither %s nor %s", id,
         logs[0].path().c_str(), logs[1].path().c_str());
  }
  const Log* shown = nullptr;
  for (bool first = true; first || follow; first = false) {
    for (Log& log : logs) {
      std::vector<std::string> lines = log.lines();
      // Of what follows, a line is shown when it is whole.
      if (const std::string rest = log.rest(); !follow && !rest.empty()) lines.push_back(rest);
      if (first && lines.size() > most)
        lines.erase(lines.begin(), lines.end() - static_cast<long>(most));
      if (!lines.empty() && &log != shown) {
        printf("%s==> %s <==\n", shown == nullptr ? "" : "\n", log.path().c_str());
        shown = &log;
      }
      for (const std::string& line : lines) printf("%s\n", line.c_str());
    }
    fflush(stdout);
    if (follow) std::this_thread::sleep_for(kPause);
  }
}

}  // namespace node
