#include "share/engine/changed_places.h"

#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "share/engine/file_handles.h"

namespace engine {

namespace {

constexpr int kMostTries = 10;  // for a directory that is being moved about

bool isSame(const struct stat& one, const Fd& other) {
  struct stat status {};
  return ::fstat(other.get(), &status) == 0 && status.st_dev == one.st_dev &&
         status.st_ino == one.st_ino;
}

// False if it is not clear where the directory is. One that is not seen in the tree, as
// it lies outside or something is mounted above it, is left out.
bool addDirectory(const Tree& tree, const std::string& top, int directory,
                  const struct stat& status, const std::set<std::string>& names,
                  ChangesKnown& known) {
  const std::string prefix = top == "/" ? top : top + "/";
  std::string before;
  for (int i = 0; i < kMostTries; ++i) {
    const std::optional<std::string> path = pathOf(directory);
    if (!path) return false;
    if (*path == before) return true;
    before = *path;
    if (*path != top && !path->starts_with(prefix)) continue;
    const std::string below = *path == top ? "" : path->substr(prefix.size());
    const Fd there = tree.openDirectory(below);
    if (!there && !saysMissing(errno)) return false;
    if (!there || !isSame(status, there)) continue;
    addPlace(known.directories, below, names);
    return true;
  }
  return false;
}

bool addObject(const Tree& tree, const std::string& top, const OpenMount& mount,
               const ChangedObject& object, const std::set<std::string>& names,
               ChangesKnown& known) {
  const Fd opened = openObject(mount, object);
  if (isRemoved(opened)) return true;  // its directory has changed as well
  struct stat status {};
  if (!opened || ::fstat(opened.get(), &status) != 0) return false;
  if (object.directory) return addDirectory(tree, top, opened.get(), status, names, known);
  known.files.emplace(status.st_dev, status.st_ino);
  return true;
}

}  // namespace

void findPlaces(const Tree& tree, const std::string& top, const std::vector<MountBelow>& mounts,
                const std::vector<Changed>& changes, ChangesKnown& known) {
  std::vector<std::pair<OpenMount, dev_t>> opened;
  for (const MountBelow& mount : mounts) {
    if (auto one = openMount(absolutePath(top, mount.path)))
      opened.emplace_back(std::move(*one), mount.device);
    else
      known.devices.erase(mount.device);
  }
  for (const Changed& change : changes) {
    const ChangedObject object = ChangedObject::from(change.object);
    for (const auto& [mount, device] : opened)
      if (mount.fsid == object.fsid && !addObject(tree, top, mount, object, change.names, known))
        known.devices.erase(device);
  }
}

}  // namespace engine
