#include "node/sandbox.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <vector>

#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/mounts.h"
#include "host/text.h"
#include "node/host.h"

namespace node {
namespace {

constexpr std::array kDevices{"null", "zero", "full", "random", "urandom", "tty"};

/// Makes the tree the root directory, with owners as the user namespace maps them if there
/// is one. The old root stays mounted beneath; its descriptor is returned.
Fd changeRoot(const std::string& tree, const Fd& userNamespace) {
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    failErrno("cannot make the mounts private");
  }
  const char* path = tree.c_str();
  if (mount(path, path, nullptr, MS_BIND, nullptr) != 0) failErrno("cannot bind %s", path);
  if (!addMountFlags(tree, MS_NODEV | MS_NOSUID)) {
    failErrno("cannot disable the device files of %s", path);
  }
  // Where owners are mapped, this process can make nothing.
  for (const char* place : {"/proc", "/dev"}) {
    if (mkdir((tree + place).c_str(), 0755) != 0 && errno != EEXIST) {
      failErrno("cannot create directory %s", (tree + place).c_str());
    }
  }
  if (userNamespace) mountMapped(tree, userNamespace);
  Fd oldRoot(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!oldRoot) failErrno("cannot open the root directory");
  if (chdir(path) != 0) failErrno("cannot enter %s", path);
  if (syscall(SYS_pivot_root, ".", ".") != 0) failErrno("cannot make %s the root", path);
  return oldRoot;
}

void mountProc() {
  if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr) != 0) {
    failErrno("cannot mount /proc for the script");
  }
}

void makeFile(const std::string& path, const std::string& content, mode_t mode) {
  const Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!fd || !writeAll(fd.get(), content)) failErrno("cannot write %s", path.c_str());
}

/// Fills /dev. Device files are bound from the host's, since making them anew
/// is not allowed in every user namespace.
void mountDev(const std::vector<Fd>& devices, const std::string& script) {
  if (mount("qx-dev", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=0755,size=16m") != 0) {
    failErrno("cannot mount /dev for the script");
  }
  for (size_t i = 0; i < kDevices.size(); ++i) {
    if (!devices[i]) continue;
    const std::string path = std::string("/dev/") + kDevices[i];
    makeFile(path, "", 0666);
    const std::string source = textf("/proc/self/fd/%d", devices[i].get());
    if (mount(source.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      failErrno("cannot provide %s for the script", path.c_str());
    }
  }
  for (const auto& [name, target] :
       std::array<std::pair<const char*, const char*>, 4>{{{"/dev/fd", "/proc/self/fd"},
                                                           {"/dev/stdin", "/proc/self/fd/0"},
                                                           {"/dev/stdout", "/proc/self/fd/1"},
                                                           {"/dev/stderr", "/proc/self/fd/2"}}}) {
    if (symlink(target, name) != 0) failErrno("cannot create %s", name);
  }
  // Root of a user namespace is not its owner.
  makeFile(kScriptInSandbox, script, 0555);
}

void leaveOldRoot(Fd oldRoot) {
  if (fchdir(oldRoot.get()) != 0 || umount2(".", MNT_DETACH) != 0 || chdir("/") != 0) {
    failErrno("cannot leave the host's root");
  }
}

}  // namespace

void enterSandbox(const std::string& tree, const std::string& hostname, const std::string& script,
                  const Fd& userNamespace) {
  if (unshare(CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWNET) != 0) {
    failErrno("cannot create namespaces for the script");
  }
  if (!hostname.empty() && sethostname(hostname.data(), hostname.size()) != 0) {
    failErrno("cannot set the host name '%s'", hostname.c_str());
  }
  umask(022);
  Fd oldRoot = changeRoot(tree, userNamespace);
  // The old root's tree is still there beneath: the devices come from it.
  std::vector<Fd> devices;
  for (const char* name : kDevices) {
    devices.emplace_back(openat(oldRoot.get(), textf("dev/%s", name).c_str(), O_PATH | O_CLOEXEC));
    // A host that is itself a container may lack some.
    if (!devices.back() && errno != ENOENT) failErrno("cannot open the host's /dev/%s", name);
  }
  mountProc();
  mountDev(devices, script);
  devices.clear();
  leaveOldRoot(std::move(oldRoot));
}

void joinUserNamespace(const Fd& userNamespace) {
  if (setns(userNamespace.get(), CLONE_NEWUSER) != 0 || setgroups(0, nullptr) != 0 ||
      setresgid(0, 0, 0) != 0 || setresuid(0, 0, 0) != 0) {
    failErrno("cannot enter the container's user namespace");
  }
}

}  // namespace node
