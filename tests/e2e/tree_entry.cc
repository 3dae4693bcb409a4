#include "e2e/tree_entry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace treediff {

namespace {

[[noreturn]] void refuse(const std::string& path, int number) {
  throw std::runtime_error(path + ": " + strerror(number));
}

void readTarget(const std::string& path, Entry& entry) {
  std::string target(static_cast<size_t>(std::max<off_t>(entry.info.st_size, 4096)) + 1, '\0');
  const ssize_t size = readlink(path.c_str(), target.data(), target.size());
  if (size < 0) refuse(path, errno);
  entry.target = target.substr(0, static_cast<size_t>(size));
}

void readXattrs(const std::string& path, Entry& entry) {
  std::string names(65536, '\0');
  const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
  if (size < 0) {
    if (errno == ENOTSUP) return;
    refuse(path, errno);
  }
  names.resize(static_cast<size_t>(size));
  for (size_t at = 0; at < names.size(); at += strlen(names.c_str() + at) + 1) {
    const char* name = names.c_str() + at;
    std::string value(65536, '\0');
    const ssize_t length = lgetxattr(path.c_str(), name, value.data(), value.size());
    if (length < 0) refuse(path + ": attribute " + name, errno);
    entry.xattrs[name] = value.substr(0, static_cast<size_t>(length));
  }
}

class File {
 public:
  explicit File(const std::string& path)
      : path_(path), fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)) {
    if (fd_ < 0) refuse(path, errno);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(fd_); }

  // Fills the buffer unless the file ends before.
  size_t read(char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
      const ssize_t got = ::read(fd_, buffer + done, size - done);
      if (got < 0) refuse(path_, errno);
      if (got == 0) break;
      done += static_cast<size_t>(got);
    }
    return done;
  }

 private:
  std::string path_;
  int fd_;
};

}  // namespace

bool readEntry(const std::string& path, Entry& entry) {
  if (lstat(path.c_str(), &entry.info) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return false;
    refuse(path, errno);
  }
  if (S_ISLNK(entry.info.st_mode)) readTarget(path, entry);
  readXattrs(path, entry);
  return true;
}

std::vector<std::string> listDirectory(const std::string& path) {
  DIR* directory = opendir(path.c_str());
  if (!directory) refuse(path, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* item = readdir(directory)) {
    const std::string name = item->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  const int number = errno;
  closedir(directory);
  if (number != 0) refuse(path, number);
  std::sort(names.begin(), names.end());
  return names;
}

bool sameContent(const std::string& left, const std::string& right) {
  File first(left);
  File second(right);
  static std::vector<char> one(256 * 1024);
  static std::vector<char> other(256 * 1024);
  for (;;) {
    const size_t size = first.read(one.data(), one.size());
    if (second.read(other.data(), other.size()) != size) return false;
    if (memcmp(one.data(), other.data(), size) != 0) return false;
    if (size < one.size()) return true;
  }
}

}  // namespace treediff
