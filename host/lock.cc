#include "host/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <thread>

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

std::string lockPath(const std::string& lockDir, unsigned id) {
  return textf("%s/%u.lck", lockDir.c_str(), id);
}

/// Nothing that somebody else put there in place of a lock is waited for, or believed.
std::optional<std::string> readLock(const std::string& path) {
  constexpr size_t kLongest = 256;
  const Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (!fd || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid()) {
    return std::nullopt;
  }
  std::string content(kLongest, '\0');
  const ssize_t got = read(fd.get(), content.data(), content.size());
  if (got < 0) return std::nullopt;
  content.resize(static_cast<size_t>(got));
  return content;
}

/// Whether a live process holds the lock; its pid and what it is doing then.
std::optional<std::string> liveHolder(const std::string& path) {
  const std::optional<std::string> content = readLock(path);
  if (!content) return std::nullopt;
  const std::optional<pid_t> pid = parseLockHolder(*content);
  struct stat st;
  if (!pid || stat(textf("/proc/%d", *pid).c_str(), &st) != 0) return std::nullopt;
  const std::vector<std::string_view> lines = splitLines(*content);
  const std::string status = lines.size() > 1 ? std::string(lines[1]) : std::string();
  return textf("process %d%s%s%s", *pid, status.empty() ? "" : " (", status.c_str(),
               status.empty() ? "" : ")");
}

Fd openLockDirectory(const std::string& lockDir) {
  Fd directory(open(lockDir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat st;
  if (!directory || fstat(directory.get(), &st) != 0) {
    failErrno("cannot open the lock directory %s", lockDir.c_str());
  }
  if (st.st_uid != geteuid() || (st.st_mode & S_IWOTH) != 0 ||
      ((st.st_mode & S_IWGRP) != 0 && st.st_gid != getegid())) {
    fail(ExitCode::kBadConfig,
         "LOCKDIR is '%s': others can make files there (owner %u, mode %o), a directory of root's "
         "own is needed",
         lockDir.c_str(), st.st_uid, static_cast<unsigned>(st.st_mode & 07777));
  }
  return directory;
}

/// Nobody who follows the rules holds it for longer than a few system calls.
void lockDirectory(const Fd& directory, const std::string& lockDir) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds kTimeout{10};
  const Clock::time_point end = Clock::now() + kTimeout;
  while (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) failErrno("cannot lock %s", lockDir.c_str());
    if (Clock::now() >= end) {
      fail(ExitCode::kLocked, "the lock directory %s is locked by another process",
           lockDir.c_str());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace

void makeLockDirectory(const std::string& lockDir) {
  const size_t slash = lockDir.rfind('/');
  if (slash != lockDir.npos && slash > 0) makeDirectories(lockDir.substr(0, slash));
  if (mkdir(lockDir.c_str(), 0700) != 0 && errno != EEXIST) {
    failErrno("cannot create directory %s", lockDir.c_str());
  }
  openLockDirectory(lockDir);
}

std::optional<pid_t> parseLockHolder(std::string_view content) {
  const std::vector<std::string_view> words = splitWords(content.substr(0, content.find('\n')));
  if (words.empty()) return std::nullopt;
  const std::optional<uint64_t> pid = parseDecimal(words[0]);
  if (!pid || *pid == 0 || *pid > std::numeric_limits<pid_t>::max()) return std::nullopt;
  return static_cast<pid_t>(*pid);
}

std::optional<std::string> lockHolder(const std::string& lockDir, unsigned id) {
  return liveHolder(lockPath(lockDir, id));
}

ContainerLock::ContainerLock(const std::string& lockDir, unsigned id, std::string_view status) {
  makeLockDirectory(lockDir);
  const std::string path = lockPath(lockDir, id);
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
  const Fd guard = openLockDirectory(lockDir);
  lockDirectory(guard, lockDir);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (link(temporary.path.c_str(), path.c_str()) == 0) {
      path_ = path;
      return;
    }
    if (errno != EEXIST) failErrno("cannot lock container %u: cannot create %s", id, path.c_str());
    if (const std::optional<std::string> holder = lockHolder(lockDir, id)) {
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
