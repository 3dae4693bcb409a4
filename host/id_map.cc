#include "host/id_map.h"

#include <fcntl.h>
#include <linux/mount.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "host/descriptors.h"
#include "host/error.h"
#include "host/file.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/text.h"

namespace host {
namespace {

/// What one Linux system uses: also the ids of "nobody", and of services that
/// systemd gives users to.
constexpr uint64_t kLeastCount = 65536;
/// The host's own users.
constexpr uint64_t kLeastFirst = 65536;
constexpr uint64_t kLastId = 4294967294;

/// A process in a user namespace of its own that only waits to be killed.
class Waiter {
 public:
  Waiter() {
    FdPair ends = makePipe();
    if (!ends) failErrno("cannot create a pipe");
    pid_ = fork();
    if (pid_ < 0) failErrno("cannot start a process");
    if (pid_ == 0) {
      const int error = unshare(CLONE_NEWUSER) == 0 ? 0 : errno;
      if (write(ends.second.get(), &error, sizeof error) != sizeof error) _exit(1);
      // When the parent dies, nobody else would end it.
      alarm(60);
      for (;;) pause();
    }
    ends.second.reset();
    int error = ECHILD;
    if (read(ends.first.get(), &error, sizeof error) == sizeof error && error == 0) return;
    end();
    errno = error;
    failErrno("this kernel gives no user namespace to an unprivileged container");
  }
  ~Waiter() { end(); }
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;
  std::string path(const char* name) const { return textf("/proc/%d/%s", pid_, name); }

 private:
  void end() const {
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  pid_t pid_ = -1;
};

void writeMap(const std::string& path, const IdMap& map) {
  const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!fd || !writeAll(fd.get(), textf("0 %u %u\n", map.first, map.count))) {
    failErrno("cannot use the ids %u to %u of UNPRIVILEGED_IDS", map.first,
              map.first + map.count - 1);
  }
}

IdMap configuredMap(const Container& container) {
  IdMap map;
  const std::string text = container.var("UNPRIVILEGED_IDS");
  if (text.empty()) return map;
  const size_t colon = text.find(':');
  const std::optional<uint64_t> first = parseDecimal(text.substr(0, colon));
  const std::optional<uint64_t> count =
      colon == text.npos ? std::optional<uint64_t>() : parseDecimal(text.substr(colon + 1));
  if (!first || !count || *first < kLeastFirst || *count < kLeastCount || *first > kLastId ||
      *count > kLastId || *first + *count - 1 > kLastId) {
    fail(ExitCode::kBadConfig,
         "UNPRIVILEGED_IDS is '%s': FIRST:COUNT is expected, such as 1000000:65536, with a FIRST "
         "of %llu or more, a COUNT of %llu or more, and no id beyond %llu",
         text.c_str(), static_cast<unsigned long long>(kLeastFirst),
         static_cast<unsigned long long>(kLeastCount), static_cast<unsigned long long>(kLastId));
  }
  map.first = static_cast<unsigned>(*first);
  map.count = static_cast<unsigned>(*count);
  return map;
}

/// A copy of the mount of `path`, mounted nowhere, with mapped owners. Throws Error.
Fd mappedCopy(const std::string& path, const Fd& userNamespace) {
  Fd tree(static_cast<int>(
      syscall(SYS_open_tree, AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC)));
  if (!tree) failErrno("cannot copy the mount of %s", path.c_str());
  mount_attr attributes{};
  attributes.attr_set = MOUNT_ATTR_IDMAP | MOUNT_ATTR_NODEV;
  // What is set-id belongs to the mapped owners, who are nobody on the host.
  attributes.attr_clr = MOUNT_ATTR_NOSUID;
  attributes.userns_fd = static_cast<unsigned long long>(userNamespace.get());
  if (syscall(SYS_mount_setattr, tree.get(), "", AT_EMPTY_PATH, &attributes, sizeof attributes) !=
      0) {
    failErrno(
        "the kernel cannot show the files of %s with the owners of an unprivileged container: use "
        "a file system that can (ext4, xfs or btrfs, with Linux 5.15 or newer), or set "
        "UNPRIVILEGED=no",
        path.c_str());
  }
  return tree;
}

/// Throws Error that says why this host cannot make the container unprivileged.
void tryMap(const Container& container, const IdMap& map) {
  requireSetAside(map);
  const Fd userNamespace = makeUserNamespace(map);
  std::string place = container.tree();
  const bool image = exists(container.inPrivateArea(kImageFile)) ||
                     (!exists(place) && container.var("STORAGE") == "ext4");
  // While an image is not mounted, nothing of it is there to try; but ext4 can.
  if (image && countMountsAt(mountPoints(), place) == 0) return;
  while (!isDirectory(place) && place.size() > 1) {
    place.resize(std::max<size_t>(place.rfind('/'), 1));
  }
  mappedCopy(place, userNamespace);
}

}  // namespace

IdChoice idChoiceOf(const Container& container) {
  const std::string word = container.var("UNPRIVILEGED");
  if (word == "no") return {std::nullopt, kPrivilegedByChoice};
  if (word == "yes") return {configuredMap(container), "UNPRIVILEGED=yes"};
  if (!word.empty()) {
    fail(ExitCode::kBadConfig, "UNPRIVILEGED is '%s': yes or no is expected", word.c_str());
  }
  const std::string marker = container.inPrivateArea(kRegistrationMarker);
  if (const std::optional<ShellVars> registered = readShellVars(marker)) {
    if (valueOf(*registered, "UNPRIVILEGED") == "yes") {
      return {configuredMap(container), "it was registered so"};
    }
    return {std::nullopt, "it was registered so"};
  }
  const IdMap map = configuredMap(container);
  try {
    tryMap(container, map);
  } catch (const Error& error) {
    return {std::nullopt, error.what()};
  }
  return {map, "this host can"};
}

std::optional<IdMap> idMapOf(const Container& container) { return idChoiceOf(container).map; }

bool setsAside(std::string_view text, const IdMap& map) {
  for (const std::string_view line : splitLines(text)) {
    const bool root = line.starts_with("root:") || line.starts_with("0:");
    const size_t start = line.find(':') + 1;
    const size_t colon = root ? line.find(':', start) : line.npos;
    if (colon == line.npos) continue;
    const std::optional<uint64_t> first = parseDecimal(line.substr(start, colon - start));
    const std::optional<uint64_t> count = parseDecimal(line.substr(colon + 1));
    if (first && count && *first <= map.first && map.first - *first <= *count &&
        map.count <= *count - (map.first - *first)) {
      return true;
    }
  }
  return false;
}

void requireSetAside(const IdMap& map) {
  if (!exists("/usr/bin/newuidmap")) return;
  const unsigned last = map.first + map.count - 1;
  for (const char* path : {"/etc/subuid", "/etc/subgid"}) {
    if (setsAside(readFile(path).value_or(""), map)) continue;
    fail(ExitCode::kBadConfig,
         "the ids %u to %u of UNPRIVILEGED_IDS are not set aside for root in %s: "
         "'usermod --add-subuids %u-%u --add-subgids %u-%u root' does that",
         map.first, last, path, map.first, last, map.first, last);
  }
}

std::string missingIds(const ShellVars& settings) {
  Container any;
  any.vars = settings;
  if (any.var("UNPRIVILEGED") == "no") return "";
  const IdMap map = configuredMap(any);
  try {
    requireSetAside(map);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

Fd makeUserNamespace(const IdMap& map) {
  const Waiter waiter;
  writeMap(waiter.path("uid_map"), map);
  writeMap(waiter.path("gid_map"), map);
  Fd space(open(waiter.path("ns/user").c_str(), O_RDONLY | O_CLOEXEC));
  if (!space) failErrno("cannot open a user namespace");
  return space;
}

void mountMapped(const std::string& root, const Fd& userNamespace) {
  const Fd tree = mappedCopy(root, userNamespace);
  detach(root);
  if (syscall(SYS_move_mount, tree.get(), "", AT_FDCWD, root.c_str(), MOVE_MOUNT_F_EMPTY_PATH) !=
      0) {
    failErrno("cannot mount %s with other owners", root.c_str());
  }
  makePrivate(root);
}

bool isMapped(const std::string& root, const std::string& tree) {
  struct stat shown, stored;
  return stat(root.c_str(), &shown) == 0 && stat(tree.c_str(), &stored) == 0 &&
         shown.st_uid != stored.st_uid;
}

}  // namespace host
