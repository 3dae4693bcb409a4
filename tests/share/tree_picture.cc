#include "share_tests/tree_picture.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "share_tests/program_run.h"

namespace {

std::string hex(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
    text += digits;
  }
  return text;
}

class Painter {
 public:
  std::map<std::string, std::string> picture;

  void paint(int directory, const std::string& path) {
    add(directory, ".", path);
    for (const std::string& name : namesIn(directory)) {
      const std::string below = path == "." ? name : path + "/" + name;
      struct stat status {};
      if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        throw std::runtime_error("cannot stat " + below);
      if (S_ISDIR(status.st_mode)) {
        const Fd child(::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (child.get() < 0) throw std::runtime_error("cannot open " + below);
        paint(child.get(), below);
      } else {
        add(directory, name, below);
      }
    }
  }

 private:
  static std::set<std::string> namesIn(int directory) {
    std::set<std::string> names;
    DIR* stream = ::fdopendir(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (stream == nullptr) throw std::runtime_error("cannot list a directory");
    while (const dirent* entry = ::readdir(stream)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.insert(name);
    }
    ::closedir(stream);
    return names;
  }

  void add(int directory, const std::string& name, const std::string& path) {
    struct stat status {};
    ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    std::ostringstream text;
    text << std::oct << status.st_mode << std::dec << " " << status.st_uid << ":" << status.st_gid
         << " " << status.st_mtim.tv_sec << "." << status.st_mtim.tv_nsec;
    if (S_ISREG(status.st_mode)) text << " =" << contentsOf(directory, name);
    if (S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode))
      text << " " << major(status.st_rdev) << "," << minor(status.st_rdev);
    if (S_ISLNK(status.st_mode)) {
      std::string target(4096, '\0');
      const ssize_t size = ::readlinkat(directory, name.c_str(), target.data(), target.size());
      text << " -> " << target.substr(0, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }
    if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) {
      const auto first = firstNames_.try_emplace({status.st_dev, status.st_ino}, path).first;
      text << " same as " << first->second;
    }
    addAttributes(directory, name, text);
    picture[path] = text.str();
  }

  // There are no calls for extended attributes relative to a directory, and the
  // whole path may be too long for one, so this goes by /proc/self/fd.
  static void addAttributes(int directory, const std::string& name, std::ostringstream& text) {
    const std::string path = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
    std::vector<char> names(65536);
    const ssize_t size = ::llistxattr(path.c_str(), names.data(), names.size());
    std::set<std::string> sorted;
    for (const char* at = names.data(); at < names.data() + size; at += std::strlen(at) + 1) {
      std::string value(65536, '\0');
      const ssize_t length = ::lgetxattr(path.c_str(), at, value.data(), value.size());
      value.resize(length > 0 ? static_cast<size_t>(length) : 0);
      sorted.insert(std::string(at) + "=" + hex(value));
    }
    for (const std::string& line : sorted) text << " {" << line << "}";
  }

  static std::string contentsOf(int directory, const std::string& name) {
    const Fd file(::openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    std::vector<char> buffer(1 << 20);
    size_t hash = 0;
    ssize_t count = 0;
    size_t total = 0;
    while ((count = ::read(file.get(), buffer.data(), buffer.size())) > 0) {
      const std::string_view piece(buffer.data(), static_cast<size_t>(count));
      hash = hash * 1000003 + std::hash<std::string_view>()(piece);
      total += piece.size();
      if (total <= 64) text += piece;
    }
    return total <= 64 ? text : std::to_string(total) + " bytes, hash " + std::to_string(hash);
  }

  std::map<std::pair<dev_t, ino_t>, std::string> firstNames_;
};

}  // namespace

std::map<std::string, std::string> pictureOf(const std::string& root) {
  const Fd directory(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() < 0) throw std::runtime_error("cannot open " + root);
  Painter painter;
  painter.paint(directory.get(), ".");
  return painter.picture;
}

std::string differences(const std::string& root, const std::string& otherRoot) {
  const std::map<std::string, std::string> pictures[] = {pictureOf(root), pictureOf(otherRoot)};
  std::set<std::string> names;
  for (const auto& picture : pictures)
    for (const auto& [name, text] : picture) names.insert(name);
  std::string lines;
  for (const std::string& name : names) {
    std::string texts[2];
    for (int i = 0; i < 2; ++i) {
      const auto found = pictures[i].find(name);
      texts[i] = found == pictures[i].end() ? "missing" : found->second;
    }
    if (texts[0] != texts[1]) lines += name + ": " + texts[0] + " | " + texts[1] + "\n";
  }
  return lines;
}
