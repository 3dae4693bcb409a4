#include "share/engine/mounts_below.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "host/error.h"
#include "host/mounts.h"
#include "share/engine/records.h"

namespace engine {

namespace {

constexpr size_t kLongestType = 256;  // bytes

// Below the top; nothing for what is elsewhere.
std::optional<std::string> pathBelow(const std::string& point, const std::string& top) {
  if (point == top) return "";
  const std::string prefix = top == "/" ? top : top + "/";
  if (!point.starts_with(prefix)) return std::nullopt;
  return point.substr(prefix.size());
}

std::optional<MountBelow> mountAt(const host::MountInfo& mount, const std::string& path) {
  MountBelow found{path, mount.type, mount.root, 0, 0};
  unsigned majorNumber = 0;
  unsigned minorNumber = 0;
  struct stat status {};
  if (std::sscanf(mount.device.c_str(), "%u:%u", &majorNumber, &minorNumber) != 2 ||
      ::stat(mount.point.c_str(), &status) != 0)
    return std::nullopt;
  found.superblock = makedev(majorNumber, minorNumber);
  found.device = status.st_dev;
  return found;
}

std::vector<host::MountInfo> allMounts() {
  try {
    return host::currentMounts();
  } catch (const host::Error&) {
    return {};
  }
}

}  // namespace

std::string absolutePath(const std::string& top, const std::string& below) {
  if (below.empty()) return top;
  return top == "/" ? "/" + below : top + "/" + below;
}

bool tellsOfChanges(const std::string& type) {
  constexpr std::array<std::string_view, 6> kTypes = {"ext2", "ext3",  "ext4",
                                                      "xfs",  "btrfs", "tmpfs"};
  return std::find(kTypes.begin(), kTypes.end(), type) != kTypes.end();
}

bool isExcluded(const Rules& rules, std::string_view directory) {
  for (size_t slash = 0; slash != std::string_view::npos && !directory.empty();) {
    slash = directory.find('/', slash + 1);
    if (rules.excludes(directory.substr(0, slash), true)) return true;
  }
  return false;
}

bool isAtOrBelow(std::string_view path, std::string_view ancestor) {
  return ancestor.empty() || path == ancestor ||
         (path.starts_with(ancestor) && path[ancestor.size()] == '/');
}

std::vector<MountBelow> mountsBelow(const std::string& top, const Rules& rules) {
  std::vector<MountBelow> found(1);
  size_t nearest = 0;  // length of the mount point that holds the top
  for (const host::MountInfo& mount : allMounts()) {
    const std::optional<std::string> path = pathBelow(mount.point, top);
    const bool holdsTop = pathBelow(top, mount.point).has_value();
    if (!path && !holdsTop) continue;
    if (path && !path->empty() && isExcluded(rules, *path)) continue;
    const auto one = mountAt(mount, holdsTop ? "" : *path);
    if (!one) continue;
    if (holdsTop) {
      if (mount.point.size() >= nearest) found[0] = *one;
      nearest = std::max(nearest, mount.point.size());
    } else {
      // Of several at one place the last is seen.
      std::erase_if(found, [&](const MountBelow& other) { return other.path == one->path; });
      found.push_back(*one);
    }
  }
  std::sort(found.begin() + 1, found.end(),
            [](const MountBelow& a, const MountBelow& b) { return a.path < b.path; });
  return found;
}

void putMounts(Buffer& to, const std::vector<MountBelow>& mounts) {
  putNumber(to, mounts.size());
  for (const MountBelow& mount : mounts) {
    putText(to, mount.path);
    putText(to, mount.type);
    putText(to, mount.shown);
    putNumber(to, mount.superblock);
    putNumber(to, mount.device);
  }
}

std::vector<MountBelow> takeMounts(Decoder& from) {
  std::vector<MountBelow> mounts;
  for (std::uint64_t left = from.number(from.left(), "number of mounts"); left > 0; --left) {
    MountBelow& mount = mounts.emplace_back();
    mount.path = from.text(kLongestPath, "path");
    mount.type = from.text(kLongestType, "type");
    mount.shown = from.text(kLongestPath, "path");
    mount.superblock = from.number();
    mount.device = from.number();
  }
  return mounts;
}

}  // namespace engine
