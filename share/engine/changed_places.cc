#include "share/engine/changed_places.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <optional>

#include "share/engine/file_events.h"

namespace engine {

namespace {

constexpr int kMostTries = 10;  // for a directory that is being moved about

// One mount of a file system; only for as long as places are looked for, as an open
// directory keeps it from being unmounted.
struct OpenMount {
  Fd directory;
  dev_t device{};
};

using OpenMounts = std::multimap<std::string, OpenMount, std::less<>>;  // by the fsid

OpenMounts openMounts(const std::string& top, const std::vector<MountBelow>& mounts,
                      ChangesKnown& known) {
  OpenMounts opened;
  for (const MountBelow& mount : mounts) {
    const std::string path = top + "/" + mount.path;
    Fd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct statfs status {};
    if (!directory || ::fstatfs(directory.get(), &status) != 0) {
      known.devices.erase(mount.device);
      continue;
    }
    std::string fsid(sizeof status.f_fsid, '\0');
    std::memcpy(fsid.data(), &status.f_fsid, fsid.size());
    opened.emplace(fsid, OpenMount{std::move(directory), mount.device});
  }
  return opened;
}

Fd openObject(const OpenMount& mount, std::string_view handle) {
  // The copy is where the struct may be.
  alignas(file_handle) char bytes[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
  handle.copy(bytes, sizeof bytes);
  return Fd(::open_by_handle_at(mount.directory.get(), reinterpret_cast<file_handle*>(bytes),
                                O_PATH | O_CLOEXEC));
}

bool isSame(const struct stat& one, const Fd& other) {
  struct stat status {};
  return other && ::fstat(other.get(), &status) == 0 && status.st_dev == one.st_dev &&
         status.st_ino == one.st_ino;
}

// False if it is not clear where the directory is. One that is not seen in the tree, as
// it lies outside or something is mounted above it, is left out.
bool addDirectory(const Tree& tree, const std::string& top, int directory,
                  const struct stat& status, ChangesKnown& known) {
  const std::string prefix = top == "/" ? top : top + "/";
  std::string before;
  for (int i = 0; i < kMostTries; ++i) {
    const std::optional<std::string> path = pathOf(directory);
    if (!path) return false;
    if (*path == before) return true;
    before = *path;
    if (*path != top && !path->starts_with(prefix)) continue;
    const std::string below = *path == top ? "" : path->substr(prefix.size());
    if (!isSame(status, tree.openDirectory(below))) continue;
    known.directories.insert(below);
    return true;
  }
  return false;
}

bool addObject(const Tree& tree, const std::string& top, const OpenMount& mount,
               const ChangedObject& object, ChangesKnown& known) {
  const Fd opened = openObject(mount, object.handle);
  // Removed: its directory has changed as well.
  if (!opened) return errno == ESTALE || errno == ENOENT;
  struct stat status {};
  if (::fstat(opened.get(), &status) != 0) return false;
  if (status.st_nlink == 0) return true;
  if (object.directory) return addDirectory(tree, top, opened.get(), status, known);
  known.files.emplace(status.st_dev, status.st_ino);
  return true;
}

}  // namespace

void findPlaces(const Tree& tree, const std::string& top, const std::vector<MountBelow>& mounts,
                const std::vector<std::string>& objects, ChangesKnown& known) {
  const OpenMounts opened = openMounts(top, mounts, known);
  for (const std::string& bytes : objects) {
    const ChangedObject object = ChangedObject::from(bytes);
    const auto [first, last] = opened.equal_range(object.fsid);
    for (auto mount = first; mount != last; ++mount)
      if (!addObject(tree, top, mount->second, object, known))
        known.devices.erase(mount->second.device);
  }
}

}  // namespace engine
