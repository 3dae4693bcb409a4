#include "host/place.h"

#include <sys/stat.h>

#include <cerrno>

#include "host/error.h"
#include "host/file.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/text.h"

namespace host {
namespace {

[[noreturn]] void refuse(const char* variable, const std::string& path, const std::string& why) {
  fail(ExitCode::kBadConfig, "%s is '%s': %s", variable, path.c_str(), why.c_str());
}

/// Looks at the directory `part` of the path; false when it is missing.
bool checkPart(const char* variable, const std::string& path, const std::string& part) {
  struct stat st;
  if (lstat(part.c_str(), &st) != 0) {
    if (errno == ENOENT) return false;
    failErrno("cannot look at %s", part.c_str());
  }
  if (S_ISLNK(st.st_mode)) {
    refuse(variable, path,
           textf("'%s' is a symbolic link: name the place that it leads to", part.c_str()));
  }
  if (!S_ISDIR(st.st_mode)) refuse(variable, path, textf("'%s' is no directory", part.c_str()));
  if (st.st_uid != 0) {
    refuse(variable, path,
           textf("'%s' belongs to user %u, and must be root's", part.c_str(), st.st_uid));
  }
  if ((st.st_mode & S_IWOTH) != 0 || ((st.st_mode & S_IWGRP) != 0 && st.st_gid != 0)) {
    refuse(variable, path, textf("others than root can write to '%s'", part.c_str()));
  }
  return true;
}

/// Whether something of a private area's own lies in the directory.
bool isPrivateArea(const std::string& directory) {
  for (const char* name : {kTemplateMarker, kRegistrationMarker, kImageFile, kQuotaFile}) {
    if (exists(directory + "/" + name)) return true;
  }
  return false;
}

bool isWithin(const std::string& path, const std::string& ancestor) {
  return (path + "/").starts_with(ancestor + "/");
}

}  // namespace

void requireRootsPath(const char* variable, const std::string& path) {
  if (!checkPart(variable, path, "/")) return;
  for (size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
    if (!checkPart(variable, path, path.substr(0, slash))) return;
  }
  struct stat st;
  // Whose the last one is, is not asked: of a mounted root the guest decides it.
  if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    refuse(variable, path, "this is a symbolic link: name the place that it leads to");
  }
}

void requireRootsArea(const std::string& privateArea) {
  constexpr char kVariable[] = "VE_PRIVATE";
  requireRootsPath(kVariable, privateArea);
  checkPart(kVariable, privateArea, privateArea);
  for (size_t slash = privateArea.find('/', 1); slash != privateArea.npos;
       slash = privateArea.find('/', slash + 1)) {
    const std::string above = privateArea.substr(0, slash);
    if (isPrivateArea(above)) {
      refuse(kVariable, privateArea,
             textf("it lies in '%s', which is a private area itself", above.c_str()));
    }
  }
}

void requireOwnPlaces(const Container& container) {
  requireRootsArea(container.privateArea);
  requireRootsPath("VE_ROOT", container.root);
  for (const unsigned id : configuredIds()) {
    if (id == container.id) continue;
    Container other;
    try {
      other = findContainer(id);
    } catch (const Error&) {
      continue;
    }
    for (const auto& [variable, place] :
         {std::pair("VE_PRIVATE", container.privateArea), std::pair("VE_ROOT", container.root)}) {
      if (place.empty()) continue;
      for (const std::string& theirs : {other.privateArea, other.root}) {
        if (isWithin(place, theirs)) {
          refuse(variable, place, textf("'%s' is container %u's", theirs.c_str(), id));
        }
        if (isWithin(theirs, place)) {
          refuse(variable, place, textf("'%s' of container %u lies in it", theirs.c_str(), id));
        }
      }
    }
  }
}

std::string unmountedPlace(const std::string& privateArea) {
  return missingMount(readFile("/etc/fstab").value_or(""), mountPoints(), privateArea);
}

void requireMounted(const std::string& privateArea) {
  const std::string missing = unmountedPlace(privateArea);
  if (missing.empty()) return;
  fail(ExitCode::kNotFound, "the private area %s is on %s, which is not mounted: 'mount %s'",
       privateArea.c_str(), missing.c_str(), missing.c_str());
}

void makeStateDirectories() {
  for (const char* directory : {kPrivateDir, kRootDir, kTemplateDir}) {
    makeDirectories(directory);
    struct stat st;
    if (stat(directory, &st) != 0 ||
        ((st.st_mode & S_IRWXO) != 0 && chmod(directory, st.st_mode & 07700) != 0)) {
      failErrno("cannot close %s to others", directory);
    }
  }
}

void letPass(const std::string& path, unsigned gid) {
  for (size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
    const std::string directory = path.substr(0, slash);
    struct stat st;
    if (stat(directory.c_str(), &st) != 0) failErrno("cannot look at %s", directory.c_str());
    if ((st.st_mode & S_IXOTH) != 0) continue;
    if (st.st_gid != 0 && st.st_gid != gid) {
      fail(ExitCode::kBadConfig,
           "'%s' lets pass containers whose root is group %u, and the one of '%s' is group %u: "
           "give containers with other UNPRIVILEGED_IDS a VE_ROOT of another directory",
           directory.c_str(), st.st_gid, path.c_str(), gid);
    }
    if (st.st_gid == gid && (st.st_mode & S_IRWXG) == S_IXGRP) continue;
    // In this order, so that the group never has more than it is to have.
    if (chmod(directory.c_str(), st.st_mode & 07700) != 0 ||
        chown(directory.c_str(), 0, gid) != 0 ||
        chmod(directory.c_str(), (st.st_mode & 07700) | S_IXGRP) != 0) {
      failErrno("cannot let an unprivileged container pass through %s", directory.c_str());
    }
  }
}

}  // namespace host
