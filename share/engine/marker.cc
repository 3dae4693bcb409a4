#include "share/engine/marker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "share/engine/hello.h"

namespace engine {

namespace {

constexpr size_t kLongestFile = 256;  // bytes

}  // namespace

Marker::Marker(const std::string& folder, const Tree& tree) : folder_(folder) {
  struct statx status {};
  if (folder.empty() || !tree.open() ||
      ::statx(tree.root(), "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &status) != 0 ||
      (status.stx_mask & STATX_BTIME) == 0)
    return;
  name_ = folder + "/tree-" + std::to_string(status.stx_dev_major) + "-" +
          std::to_string(status.stx_dev_minor) + "-" + std::to_string(status.stx_ino);
  birth_ = std::to_string(status.stx_btime.tv_sec) + "." +
           std::to_string(status.stx_btime.tv_nsec) + "\n";
}

std::string Marker::take() const {
  if (name_.empty()) return {};
  const Fd file(::open(name_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  std::string text(kLongestFile, '\0');
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || status.st_uid != ::geteuid()) return {};
  const ssize_t size = ::read(file.get(), text.data(), text.size());
  ::unlink(name_.c_str());
  text.resize(size > 0 ? static_cast<size_t>(size) : 0);
  if (text.compare(0, birth_.size(), birth_) != 0) return {};
  text.erase(0, birth_.size());
  return text.size() <= kLongestIdentity ? text : std::string();
}

void Marker::put(const std::string& identity) const {
  if (name_.empty() || identity.empty()) return;
  if (::mkdir(folder_.c_str(), 0700) != 0 && errno != EEXIST) return;
  const std::string newName = name_ + ".new";
  ::unlink(newName.c_str());
  const Fd file(
      ::open(newName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  const std::string text = birth_ + identity;
  if (file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()))
    ::rename(newName.c_str(), name_.c_str());
}

}  // namespace engine
