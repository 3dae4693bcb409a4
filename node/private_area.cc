#include "node/private_area.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/clock.h"
#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/place.h"
#include "host/process.h"
#include "host/text.h"
#include "node/template.h"

namespace node {
namespace {

/// A directory with exactly these ids and mode, whatever the umask.
void makeOwnedDirectory(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), 0700) != 0 && !(errno == EEXIST && isDirectory(path))) {
    failErrno("cannot create directory %s", path.c_str());
  }
  if (chown(path.c_str(), 0, 0) != 0 || chmod(path.c_str(), mode) != 0) {
    failErrno("cannot set owner and mode of %s", path.c_str());
  }
}

void makeParents(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash != path.npos && slash > 0) makeDirectories(path.substr(0, slash));
}

/// Where an area is made that is not complete yet.
std::string stagingOf(const std::string& privateArea) { return privateArea + ".creating"; }

/// Removes what a run left that did not come to its end.
void removeUnfinished(const std::string& area) {
  if (!umountTree(area)) failErrno("cannot unmount the tree of %s", area.c_str());
  removeSubvolumes(area);
  runProgram({"rm", "-rf", "--one-file-system", "--", area});
}

/// Removes a directory that this process began to fill, unless it was finished.
class Unfinished {
 public:
  explicit Unfinished(std::string path) : path_(std::move(path)) {}
  ~Unfinished() {
    if (path_.empty()) return;
    try {
      removeUnfinished(path_);
    } catch (const Error&) {
      // The failure that led here is the one to report; what is left is
      // removed by the next attempt.
    }
  }
  void finished() { path_.clear(); }

 private:
  std::string path_;
};

}  // namespace

void makePrivateArea(const std::string& privateArea, const StoragePlan& plan) {
  const std::string tree = privateArea + "/" + kTreeName;
  const std::string unfinished = std::string(kImageFile) + ".new";
  const bool existed = exists(privateArea);
  if (existed) {
    if (!isDirectory(privateArea)) {
      fail(ExitCode::kExists, "%s exists and is not a directory", privateArea.c_str());
    }
    for (const std::string& name : listDirectory(privateArea)) {
      if (name == unfinished) continue;
      if (name != kTreeName || !isDirectory(tree) || !listDirectory(tree).empty()) {
        fail(ExitCode::kExists, "private area %s exists and is not empty", privateArea.c_str());
      }
    }
  }
  makeStateDirectories();
  makeParents(privateArea);
  makeOwnedDirectory(privateArea, 0700);
  // An empty one of another kind is no obstacle.
  if ((rmdir(tree.c_str()) != 0 && errno != ENOENT) ||
      (unlink((privateArea + "/" + unfinished).c_str()) != 0 && errno != ENOENT)) {
    failErrno("cannot complete %s", privateArea.c_str());
  }
  try {
    makeTree(privateArea, plan);
  } catch (const Error&) {
    if (!existed) rmdir(privateArea.c_str());
    throw;
  }
}

void makePrivateAreaFromTemplate(const Container& container, const std::string& templateName) {
  const std::string& privateArea = container.privateArea;
  const OsTemplate source = findTemplate(templateName);
  const StoragePlan plan = storagePlan(container);
  if (exists(privateArea)) {
    fail(ExitCode::kExists, "private area %s exists already", privateArea.c_str());
  }
  makeParents(privateArea);
  // Whoever finds the private area takes it for complete, so it gets its name
  // last of all. A directory of this name is what a killed run left.
  Container staged = container;
  staged.privateArea = stagingOf(privateArea);
  const std::string& staging = staged.privateArea;
  removeUnfinished(staging);
  Unfinished unfinished(staging);
  makePrivateArea(staging, plan);
  {
    const TreeAccess access(staged);
    unpackTemplate(source, staged.tree());
  }
  replaceFile(staging + "/" + kTemplateMarker, templateName, 0644);
  if (rename(staging.c_str(), privateArea.c_str()) != 0) {
    failErrno("cannot rename %s to %s", staging.c_str(), privateArea.c_str());
  }
  unfinished.finished();
}

void removePrivateArea(const std::string& privateArea) {
  for (const std::string& name : listDirectory(privateArea)) {
    if (name != kTreeName && name != kTemplateMarker && !name.starts_with(kOwnPrefix)) {
      fail(ExitCode::kBadConfig,
           "%s holds '%s', which no private area does: nothing was removed, look what it is",
           privateArea.c_str(), name.c_str());
    }
  }
  const std::vector<std::string> points = mountPoints();
  const std::vector<std::string> inside = mountsBelow(points, privateArea);
  if (!inside.empty()) {
    fail(ExitCode::kBusy, "%s is mounted inside the private area", inside.front().c_str());
  }
  if (countMountsAt(points, privateArea) > 0) {
    fail(ExitCode::kBusy, "private area %s is a mount point: unmount it first",
         privateArea.c_str());
  }
  removeSubvolumes(privateArea);
  runProgram({"rm", "-rf", "--one-file-system", "--", privateArea});
}

void removeUnfinishedArea(const std::string& privateArea) {
  const std::string staging = stagingOf(privateArea);
  if (exists(staging)) removeUnfinished(staging);
}

bool isSystemTree(const std::string& tree) {
  const Fd root(open(tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root) return false;
  for (const char* program : {"/sbin/init", "/etc/init", "/bin/init", "/bin/sh"}) {
    const Fd fd = openInRoot(root.get(), program, O_PATH);
    struct stat st;
    if (fd && fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 0111) != 0) {
      return true;
    }
  }
  return false;
}

std::string storedTemplate(const Container& container) {
  return readFile(container.inPrivateArea(kTemplateMarker)).value_or("");
}

bool registerContainer(const Container& container) {
  const std::string tree = container.tree();
  if (!isDirectory(tree)) {
    fail(ExitCode::kNotFound, "container %u has no file tree: there is no directory %s",
         container.id, tree.c_str());
  }
  if (registration(container)) return false;
  if (!isSystemTree(tree)) {
    fail(ExitCode::kNotFound,
         "%s does not look like a Linux system: it has neither an init program nor /bin/sh",
         tree.c_str());
  }
  const std::string stored = storedTemplate(container);
  const std::string source = stored.empty() ? "files" : "template " + stored;
  // What is chosen now holds for good: the owners of its files outside must not depend on
  // what this host can on the day of a start.
  const char* unprivileged = idMapOf(container) ? "yes" : "no";
  replaceFile(container.inPrivateArea(kRegistrationMarker),
              textf("REGISTERED=%s\nSOURCE=%s\nUNPRIVILEGED=%s\n",
                    shellQuoted(host::utcNow()).c_str(), shellQuoted(source).c_str(), unprivileged),
              0644);
  return true;
}

std::optional<Registration> registration(const Container& container) {
  const std::optional<ShellVars> vars = readShellVars(container.inPrivateArea(kRegistrationMarker));
  if (!vars) return std::nullopt;
  return Registration{valueOf(*vars, "REGISTERED"), valueOf(*vars, "SOURCE")};
}

}  // namespace node
