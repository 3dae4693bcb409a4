#include "node/engine.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/interfaces.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/place.h"
#include "host/state.h"
#include "host/users.h"
#include "node/adapt.h"
#include "node/left_groups.h"
#include "node/private_area.h"
#include "node/quota.h"
#include "node/resources.h"
#include "node/run_record.h"
#include "node/settle.h"
#include "node/storage.h"

namespace node {
namespace {

bool isSameDirectory(const std::string& a, const std::string& b) {
  struct stat first, second;
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

void requireTree(const Container& container) {
  if (!isDirectory(container.privateArea)) {
    fail(ExitCode::kNotFound, "container %u has no private area: there is no directory %s",
         container.id, container.privateArea.c_str());
  }
  if (!isDirectory(container.tree())) {
    fail(ExitCode::kNotFound,
         "private area %s of container %u has no directory '%s': mkqxfs makes private areas",
         container.privateArea.c_str(), container.id, kTreeName);
  }
}

[[noreturn]] void failBusy(const Container& container, const std::string& place) {
  const std::vector<std::string> below = mountsBelow(mountPoints(), place);
  std::string user = below.empty() ? findUser(place) : "the mount " + below.front();
  if (user.empty()) user = "a process that could not be found";
  fail(ExitCode::kBusy, "cannot unmount %s of container %u: it is used by %s", place.c_str(),
       container.id, user.c_str());
}

/// More than one mount can lie there, such as one made by hand.
void umountRoot(const Container& container) {
  while (isMounted(container)) {
    if (umount(container.root.c_str()) != 0) {
      if (errno == EBUSY) failBusy(container, container.root);
      failErrno("cannot unmount %s", container.root.c_str());
    }
  }
}

/// As a shared mount it would hand LXC's and id_map.h's mounts on it to the tree. And on the
/// host nobody is to run its set-id programs, or open its device files.
void limitRoot(const Container& container) {
  try {
    makePrivate(container.root);
    setHarmless(container.root, true);
  } catch (const Error&) {
    umountRoot(container);
    throw;
  }
}

void umountTreeOf(const Container& container) {
  if (umountTree(container.privateArea)) return;
  if (errno == EBUSY) failBusy(container, container.tree());
  failErrno("cannot unmount %s", container.tree().c_str());
}

}  // namespace

void createContainer(const Container& container) {
  const std::string name = container.var("OSTEMPLATE");
  if (name.empty()) {
    fail(ExitCode::kBadConfig,
         "%s names no OS template: set OSTEMPLATE, or make an empty private area with "
         "'mkqxfs %s'",
         configPath(container.id).c_str(), container.privateArea.c_str());
  }
  requireMounted(container.privateArea);
  makePrivateAreaFromTemplate(container, name);
  const TreeAccess access(container);
  if (isSystemTree(container.tree())) registerContainer(container);
  markForAdaptation(container);
}

Outcome mountContainer(const Container& container) {
  requireTree(container);
  const bool mountedTree = mountTree(container);
  if (mountedTree) applyKeptQuota(container);
  try {
    // What a container that ended by itself has left.
    if (isMounted(container) && isMapped(container.root, container.tree()) &&
        !settledInit(container.id)) {
      umountRoot(container);
    }
    if (isMounted(container)) {
      if (isSameDirectory(container.root, container.tree())) return Outcome::kAlready;
      fail(ExitCode::kBusy, "something other than %s is mounted on %s", container.tree().c_str(),
           container.root.c_str());
    }
    makeStateDirectories();
    makeDirectories(container.root);
    if (!listDirectory(container.root).empty()) {
      fail(ExitCode::kExists, "%s is not empty: mounting container %u would hide what is there",
           container.root.c_str(), container.id);
    }
    if (mount(container.tree().c_str(), container.root.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      failErrno("cannot mount %s on %s", container.tree().c_str(), container.root.c_str());
    }
    limitRoot(container);
  } catch (const Error&) {
    if (mountedTree) umountTree(container.privateArea);
    throw;
  }
  return Outcome::kDone;
}

void umountContainer(const Container& container) {
  refuseRunning(container, "unmount it");
  if (!isMounted(container) && !treeIsMounted(container.privateArea)) {
    fail(ExitCode::kNotMounted, "container %u is not mounted", container.id);
  }
  umountRoot(container);
  umountTreeOf(container);
}

Outcome convertContainer(const Container& container) {
  requireTree(container);
  // What could not be started from is better refused now.
  interfacesOf(container);
  planResources(container, CgroupLayout());
  const TreeAccess access(container);
  return registerContainer(container) ? Outcome::kDone : Outcome::kAlready;
}

void destroyContainer(const Container& container) {
  if (!container.configured && !exists(container.privateArea)) {
    fail(ExitCode::kNotFound, "container %u does not exist: there is neither %s nor %s",
         container.id, configPath(container.id).c_str(), container.privateArea.c_str());
  }
  refuseRunning(container, "destroy it");
  clearGroups(container.id);
  if (isMounted(container)) umountContainer(container);
  umountTreeOf(container);
  if (exists(container.privateArea)) removePrivateArea(container.privateArea);
  removeUnfinishedArea(container.privateArea);
  // Only the empty mount point goes: files that someone put below it stay.
  if (rmdir(container.root.c_str()) != 0 && errno != ENOENT && errno != ENOTEMPTY &&
      errno != EEXIST) {
    failErrno("cannot remove %s", container.root.c_str());
  }
  forgetRun(container.id);
  forgetLogs(container.id);
  const std::string config = configPath(container.id);
  if (unlink(config.c_str()) != 0 && errno != ENOENT) {
    failErrno("cannot remove %s", config.c_str());
  }
}

}  // namespace node
