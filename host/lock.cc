#include "host/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>

#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "host/text.h"

namespace host {
namespace {

constexpr int kAttempts = 3;

/// A file that is removed when it goes out of scope.
struct TemporaryFile {
  std::string path;
  ~TemporaryFile() { unlink(path.c_str()); }
};

/// Whether a live process holds the lock; its pid and what it is doing then.
std::optional<std::string> liveHolder(const std::string& path) {
  const std::optional<std::string> content = readFile(path);
  if (!content) return std::nullopt;
  const std::optional<pid_t> pid = parseLockHolder(*content);
  struct stat st;
  if (!pid || stat(textf("/proc/%d", *pid).c_str(), &st) != 0) return std::nullopt;
  const std::vector<std::string_view> lines = splitLines(*content);
  const std::string status = lines.size() > 1 ? std::string(lines[1]) : std::string();
  return textf("process %d%s%s%s", *pid, status.empty() ? "" : " (", status.c_str(),
               status.empty() ? "" : ")");
}

}  // namespace

std::optional<pid_t> parseLockHolder(std::string_view content) {
  const std::vector<std::string_view> words = splitWords(content.substr(0, content.find('\n')));
  if (words.empty()) return std::nullopt;
  const std::optional<uint64_t> pid = parseDecimal(words[0]);
  if (!pid || *pid == 0 || *pid > std::numeric_limits<pid_t>::max()) return std::nullopt;
  return static_cast<pid_t>(*pid);
}

ContainerLock::ContainerLock(const std::string& lockDir, unsigned id, std::string_view status) {
  makeDirectories(lockDir);
  const std::string path = textf("%s/%u.lck", lockDir.c_str(), id);
  TemporaryFile temporary{path + "XXXXXX"};
  const Fd fd(mkostemp(temporary.path.data(), O_CLOEXEC));
  if (!fd) failErrno("cannot lock container %u: cannot create %s", id, temporary.path.c_str());
  // Others read the lock to say who holds it.
  if (!writeAll(fd.get(), textf("%d\n%s\n", getpid(), std::string(status).c_str())) ||
      fchmod(fd.get(), 0644) != 0) {
    failErrno("cannot lock container %u: cannot write %s", id, temporary.path.c_str());
  }
  // Two tools that find the same stale lock must not remove each other's new
  // one, so looking and removing are one step among them.
  const Fd guard(open(lockDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!guard || flock(guard.get(), LOCK_EX) != 0) failErrno("cannot lock %s", lockDir.c_str());
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (link(temporary.path.c_str(), path.c_str()) == 0) {
      path_ = path;
      return;
    }
    if (errno != EEXIST) failErrno("cannot lock container %u: cannot create %s", id, path.c_str());
    if (const std::optional<std::string> holder = liveHolder(path)) {
      fail(ExitCode::kLocked, "container %u is locked by %s", id, holder->c_str());
    }
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
      failErrno("cannot remove the stale lock %s", path.c_str());
    }
  }
  fail(ExitCode::kLocked, "container %u is locked: others keep taking %s", id, path.c_str());
}

ContainerLock::~ContainerLock() { unlink(path_.c_str()); }

}  // namespace host
