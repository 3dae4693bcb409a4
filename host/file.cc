#include "host/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "host/error.h"
#include "host/text.h"

namespace host {

std::optional<std::string> readFile(const std::string& path) {
  const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return std::nullopt;
  std::string content;
  char buffer[16384];
  for (;;) {
    const ssize_t got = read(fd.get(), buffer, sizeof buffer);
    if (got == 0) return content;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    content.append(buffer, static_cast<size_t>(got));
  }
}

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t put = write(fd, data.data(), data.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    data.remove_prefix(static_cast<size_t>(put));
  }
  return true;
}

namespace {

void replace(const std::string& path, std::string_view content, mode_t mode, bool durably) {
  std::string temporary = path + ".XXXXXX";
  const Fd fd(mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd) failErrno("cannot write %s", path.c_str());
  if (!writeAll(fd.get(), content) || fchmod(fd.get(), mode) != 0 ||
      (durably && fsync(fd.get()) != 0) || rename(temporary.c_str(), path.c_str()) != 0) {
    const int number = errno;
    unlink(temporary.c_str());
    errno = number;
    failErrno("cannot write %s", path.c_str());
  }
}

}  // namespace

void replaceFile(const std::string& path, std::string_view content, mode_t mode) {
  replace(path, content, mode, false);
}

void replaceFileDurably(const std::string& path, std::string_view content, mode_t mode) {
  replace(path, content, mode, true);
}

void syncFileSystem(const std::string& path) {
  const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) failErrno("cannot open %s", path.c_str());
  if (syncfs(fd.get()) != 0) {
    failErrno("what is on the file system of %s cannot be written", path.c_str());
  }
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> listDirectory(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(path.c_str()), closedir);
  if (!dir) failErrno("cannot read directory %s", path.c_str());
  std::vector<std::string> names;
  while (const dirent* entry = readdir(dir.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void makeDirectories(const std::string& path) {
  for (size_t at = 1; at != path.npos;) {
    at = path.find('/', at);
    const std::string part = path.substr(0, at);
    if (mkdir(part.c_str(), 0755) != 0 && !isDirectory(part)) {
      failErrno("cannot create directory %s", part.c_str());
    }
    if (at != path.npos) ++at;
  }
}

Fd openInRoot(int rootFd, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<uint64_t>(flags) | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
  return Fd(static_cast<int>(syscall(SYS_openat2, rootFd, path, &how, sizeof how)));
}

Fd openFound(const Fd& found, int flags) {
  struct stat status {};
  if (!found || fstat(found.get(), &status) != 0) return Fd();
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return Fd();
  return Fd(open(textf("/proc/self/fd/%d", found.get()).c_str(), O_RDONLY | O_CLOEXEC | flags));
}

std::string readFileInRoot(int rootFd, const char* path, size_t most) {
  const Fd file = openFound(openInRoot(rootFd, path, O_PATH), 0);
  std::string text(most, '\0');
  size_t size = 0;
  while (file && size < most) {
    const ssize_t got = read(file.get(), text.data() + size, most - size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    size += static_cast<size_t>(got);
  }
  text.resize(size);
  return text;
}

}  // namespace host
