#include "agent/plan/survey_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <memory>
#include <set>
#include <tuple>

#include "host/fd.h"
#include "host/file.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kImmutableShown = 10;

constexpr const char* kLikelyPlaces[] = {"/etc",     "/root",     "/bin",  "/sbin",
                                         "/usr/bin", "/usr/sbin", "/boot", "/var/spool/cron",
                                         "/home",    "/usr/local"};

struct CloseDir {
  void operator()(DIR* dir) const { closedir(dir); }
};
using Dir = std::unique_ptr<DIR, CloseDir>;

// Whoever owns it may have put a link in its place since.
Dir openDirectory(const std::string& path) {
  host::Fd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return Dir(fd ? fdopendir(fd.release()) : nullptr);
}

class Walk {
 public:
  Walk(const std::map<std::string, bool>& mounts, const std::vector<std::string>& excludes,
       Clock::time_point end, const CancelToken* cancel)
      : mounts_(mounts), excludes_(excludes), end_(end), cancel_(cancel) {}

  // Breadth first. False when time ran out.
  bool run(const std::string& start) {
    struct stat info;
    if (lstat(start.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return true;
    std::string owner = ownerOf(start);
    if (owner.empty() || !firstVisit(info)) return true;
    note(start, owner, info, AT_FDCWD, start.c_str());
    std::deque<std::pair<std::string, std::string>> waiting = {{start, owner}};
    while (!waiting.empty()) {
      std::string directory;
      std::tie(directory, owner) = std::move(waiting.front());
      waiting.pop_front();
      const Dir dir = openDirectory(directory);
      if (!dir) continue;
      const std::string prefix = directory == "/" ? "/" : directory + "/";
      while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (++seen_ % 64 == 0 && (Clock::now() > end_ || (cancel_ && cancel_->isCancelled()))) {
          return false;
        }
        const std::string path = prefix + name;
        if (isExcluded(path)) continue;
        const auto mount = mounts_.find(path);
        // Before anything asks a file system that may not answer.
        if (mount != mounts_.end() && !mount->second) continue;
        if (fstatat(dirfd(dir.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        const bool isDirectory = S_ISDIR(info.st_mode);
        if ((isDirectory || info.st_nlink > 1) && !firstVisit(info)) continue;
        const std::string& below = mount != mounts_.end() ? path : owner;
        note(path, below, info, dirfd(dir.get()), entry->d_name);
        if (isDirectory) waiting.push_back({path, below});
      }
    }
    return true;
  }

  FileFindings findings;

 private:
  // The mount point that a path belongs to; empty when its files do not count.
  std::string ownerOf(std::string path) const {
    for (;;) {
      if (isExcluded(path)) return "";
      const auto mount = mounts_.find(path);
      if (mount != mounts_.end()) return mount->second ? path : "";
      const size_t slash = path.rfind('/');
      if (slash == std::string::npos || path == "/") return "";
      path.resize(slash == 0 ? 1 : slash);
    }
  }

  bool isExcluded(const std::string& path) const {
    for (const std::string& pattern : excludes_) {
      if (fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME) == 0) return true;
    }
    return false;
  }

  bool firstVisit(const struct stat& info) {
    return visited_.insert({info.st_dev, info.st_ino}).second;
  }

  // `name` is the path as seen from the directory.
  void note(const std::string& path, const std::string& owner, const struct stat& info,
            int directory, const char* name) {
    FileCount& count = findings.perMount[owner];
    count.bytes += static_cast<long long>(info.st_blocks) * 512;
    ++count.files;
    if (info.st_uid > findings.largestUid) {
      findings.largestUid = info.st_uid;
      findings.largestUidPath = path;
    }
    if (info.st_gid > findings.largestGid) {
      findings.largestGid = info.st_gid;
      findings.largestGidPath = path;
    }
    if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) return;
    // In a folder of somebody's own a name is a file now and leads to a device then.
    const host::Fd found(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const host::Fd fd = host::openFound(found, O_NOATIME);
    int flags = 0;
    if (!fd || ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) != 0) return;
    if (!(flags & (FS_IMMUTABLE_FL | FS_APPEND_FL))) return;
    ++findings.immutableCount;
    if (findings.immutableFiles.size() < kImmutableShown) findings.immutableFiles.push_back(path);
  }

  const std::map<std::string, bool>& mounts_;
  const std::vector<std::string>& excludes_;
  Clock::time_point end_;
  const CancelToken* cancel_;
  unsigned seen_ = 0;
  std::set<std::pair<dev_t, ino_t>> visited_;
};

}  // namespace

FileFindings lookAtFiles(const std::string& root, const std::map<std::string, bool>& mounts,
                         const std::vector<std::string>& excludes, std::chrono::seconds timeout,
                         const CancelToken* cancel) {
  Walk walk(mounts, excludes, Clock::now() + timeout, cancel);
  const std::string prefix = root == "/" ? "" : root;
  walk.findings.complete = true;
  for (const char* place : kLikelyPlaces) {
    if (!walk.findings.complete) break;
    walk.findings.complete = walk.run(prefix + place);
  }
  if (walk.findings.complete) walk.findings.complete = walk.run(root);
  return walk.findings;
}

}  // namespace agent
