#include "share/engine/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>

namespace engine {

namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kNewDirectoryMode = 0700;

// Before Linux 5.6, and where a filter of system calls forbids it.
std::atomic<bool> kernelLacksIt{false};

int openBeneath(int root, const char* path) {
  open_how how{};
  how.flags = kDirectoryFlags;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  long fd = -1;
  do {
    fd = ::syscall(SYS_openat2, root, path, &how, sizeof how);
  } while (fd < 0 && (errno == EAGAIN || errno == EINTR));
  return static_cast<int>(fd);
}

Fd makeAndOpen(int directory, const std::string& name) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (::mkdirat(directory, name.c_str(), kNewDirectoryMode) != 0 && errno != EEXIST) break;
    Fd opened(::openat(directory, name.c_str(), kDirectoryFlags));
    if (opened || (errno != ENOTDIR && errno != ELOOP)) return opened;
    if (::unlinkat(directory, name.c_str(), 0) != 0 && errno != ENOENT) break;
  }
  return {};
}

}  // namespace

Tree::Tree(const std::string& root)
    : root_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

Fd Tree::byComponents(std::string_view path, bool make) const {
  Fd at(::fcntl(root_.get(), F_DUPFD_CLOEXEC, 3));
  while (at && !path.empty()) {
    const size_t slash = path.find('/');
    const std::string name(path.substr(0, slash));
    if (name.empty() || name == "." || name == "..") {
      errno = EINVAL;
      return {};
    }
    Fd next(::openat(at.get(), name.c_str(), kDirectoryFlags));
    if (!next && make) next = makeAndOpen(at.get(), name);
    at = std::move(next);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
  }
  return at;
}

Fd Tree::openDirectory(std::string_view path) const {
  if (path.empty() || path.size() >= PATH_MAX || kernelLacksIt) return byComponents(path, false);
  Fd opened(openBeneath(root_.get(), std::string(path).c_str()));
  if (opened || (errno != ENOSYS && errno != EPERM)) return opened;
  kernelLacksIt = true;
  return byComponents(path, false);
}

Fd Tree::ensureDirectory(std::string_view path) const {
  Fd opened = openDirectory(path);
  if (opened || !saysMissing(errno)) return opened;
  return byComponents(path, true);
}

Fd openEntry(int directory, const std::string& name, int flags, mode_t mode) {
  flags |= O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
  if ((flags & (O_ACCMODE | O_CREAT)) == O_RDONLY) {
    Fd opened(::openat(directory, name.c_str(), flags | O_NOATIME | O_NONBLOCK));
    if (opened || errno != EPERM) return opened;
    flags |= O_NONBLOCK;
  }
  return Fd(::openat(directory, name.c_str(), flags, mode));
}

bool saysMissing(int error) { return error == ENOENT || error == ENOTDIR || error == ELOOP; }

std::optional<std::string> pathOf(int fd) {
  char target[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t size = ::readlink(link.c_str(), target, sizeof target);
  if (size <= 0 || size == sizeof target) return std::nullopt;
  return std::string(target, static_cast<size_t>(size));
}

}  // namespace engine
