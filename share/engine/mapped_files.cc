#include "share/engine/mapped_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include "share/engine/beneath.h"
#include "share/engine/listing.h"
#include "share/engine/wire.h"

#include <unistd.h>

namespace engine {

namespace {

constexpr size_t kReadSize = 64 << 10;  // bytes

void readMaps(const std::string& path, Buffer& text) {
  text.clear();
  const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  while (file) {
    const ssize_t got = ::read(file.get(), text.room(kReadSize), kReadSize);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return;
    text.grow(static_cast<size_t>(got));
  }
}

using FileIds = std::vector<std::pair<dev_t, ino_t>>;

// Each file once, of what is added for each "/proc/PID".
FileIds ofAllProcesses(const std::function<void(const std::string&, FileIds&)>& add) {
  FileIds found;
  const Fd proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Listing processes;
  if (!proc || !processes.read(proc.get())) return found;
  for (const Listing::Item& item : processes.items()) {
    const std::string_view name = processes.name(item);
    if (name.find_first_not_of("0123456789") != std::string_view::npos) continue;
    add("/proc/" + std::string(name), found);
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

}  // namespace

std::vector<std::pair<dev_t, ino_t>> writableMappingsIn(std::string_view maps) {
  std::vector<std::pair<dev_t, ino_t>> found;
  while (!maps.empty()) {
    const size_t end = maps.find('\n');
    const std::string line(maps.substr(0, end));
    maps.remove_prefix(end == std::string_view::npos ? maps.size() : end + 1);
    char permissions[5] = {};
    unsigned majorNumber = 0;
    unsigned minorNumber = 0;
    unsigned long inode = 0;
    int pathAt = 0;
    if (std::sscanf(line.c_str(), "%*s %4s %*s %x:%x %lu %n", permissions, &majorNumber,
                    &minorNumber, &inode, &pathAt) != 4 ||
        inode == 0 || permissions[1] != 'w' || permissions[3] != 's')
      continue;
    found.emplace_back(makedev(majorNumber, minorNumber), inode);
    struct stat status {};
    if (pathAt > 0 && line.c_str()[pathAt] == '/' && ::lstat(line.c_str() + pathAt, &status) == 0 &&
        status.st_ino == inode)
      found.emplace_back(status.st_dev, inode);
  }
  return found;
}

std::vector<std::pair<dev_t, ino_t>> writableMappings() {
  Buffer text;
  return ofAllProcesses([&](const std::string& process, FileIds& found) {
    readMaps(process + "/maps", text);
    for (const auto& one : writableMappingsIn(text.view())) found.push_back(one);
  });
}

std::vector<std::pair<dev_t, ino_t>> openForWriting() {
  Listing descriptors;
  return ofAllProcesses([&](const std::string& process, FileIds& found) {
    const Fd folder(::open((process + "/fd").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || !descriptors.read(folder.get())) return;
    for (const Listing::Item& item : descriptors.items()) {
      const std::string name(descriptors.name(item));
      struct stat status {};
      // The link's own mode says what it was opened for.
      if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
          (status.st_mode & S_IWUSR) == 0 ||
          ::fstatat(folder.get(), name.c_str(), &status, 0) != 0 || !S_ISREG(status.st_mode))
        continue;
      found.emplace_back(status.st_dev, status.st_ino);
    }
  });
}

}  // namespace engine
