#include "share/engine/case_folding.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <optional>

namespace engine {

namespace {

// Nothing if there is no letter to write otherwise; only those of ASCII, as xfs folds no
// others.
std::optional<std::string> otherCase(std::string name) {
  constexpr char kCase = 'a' ^ 'A';
  for (char& letter : name) {
    if ((letter < 'a' || letter > 'z') && (letter < 'A' || letter > 'Z')) continue;
    letter ^= kCase;
    return name;
  }
  return std::nullopt;
}

}  // namespace

bool mayFoldCase(int directory, const std::vector<std::string>& names) {
  int flags = 0;
  if (::ioctl(directory, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL) != 0)
    return true;
  bool hasLetters = false;
  for (const std::string& name : names) {
    const std::optional<std::string> other = otherCase(name);
    if (!other) continue;
    hasLetters = true;
    struct stat one {};
    struct stat two {};
    if (::fstatat(directory, name.c_str(), &one, AT_SYMLINK_NOFOLLOW) != 0) continue;
    return ::fstatat(directory, other->c_str(), &two, AT_SYMLINK_NOFOLLOW) == 0 &&
           one.st_dev == two.st_dev && one.st_ino == two.st_ino;
  }
  return hasLetters;
}

}  // namespace engine
