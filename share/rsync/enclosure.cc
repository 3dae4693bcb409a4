#include "share/rsync/enclosure.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <stdexcept>

#include "host/confine.h"
#include "host/fd.h"
#include "host/mounts.h"
#include "host/process.h"
#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

namespace fs = std::filesystem;

// Where programs and libraries are.
constexpr const char* kProgramFolders[] = {"/usr",   "/bin",    "/sbin", "/lib",
                                           "/lib32", "/libx32", "/lib64"};
constexpr const char* kLoaderCache = "/etc/ld.so.cache";
constexpr const char* kNull = "/dev/null";

constexpr unsigned long kTame = MS_NOSUID | MS_NODEV;

[[noreturn]] void cannot(const std::string& what) {
  throw systemFailure(kExitSystem, "cannot confine rsync: cannot " + what);
}

// Something of this machine, held while the place that its name leads to changes.
class Held {
 public:
  explicit Held(const std::string& path)
      : name_(path), file_(::open(path.c_str(), O_PATH | O_CLOEXEC)) {}

  bool there() const { return bool(file_); }
  const std::string& name() const { return name_; }

  // At a place that exists.
  void showAt(const std::string& place, unsigned long flags) const {
    const std::string held = "/proc/self/fd/" + std::to_string(file_.get());
    if (::mount(held.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        !host::addMountFlags(place, flags))
      cannot("mount '" + name_ + "'");
  }

 private:
  std::string name_;
  host::Fd file_;
};

void makeFolders(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error && !fs::is_directory(path, error)) {
    errno = error.value();
    cannot("make '" + path + "'");
  }
}

void makeFile(const std::string& path) {
  makeFolders(fs::path(path).parent_path());
  const host::Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  if (!file) cannot("make '" + path + "'");
}

// The same link, or what the folder holds, to be read.
void showPrograms(const std::string& root) {
  for (const char* folder : kProgramFolders) {
    std::error_code error;
    if (fs::is_symlink(folder, error)) {
      fs::copy_symlink(folder, root + folder, error);
      continue;
    }
    const Held held(folder);
    if (!held.there()) continue;
    makeFolders(root + folder);
    held.showAt(root + folder, MS_RDONLY | kTame);
  }
}

void showFile(const std::string& root, const Held& held, unsigned long flags) {
  if (!held.there()) return;
  makeFile(root + held.name());
  held.showAt(root + held.name(), flags);
}

void showFolder(const std::string& root, const Held& held, unsigned long flags) {
  if (!held.there()) return;
  makeFolders(root + held.name());
  held.showAt(root + held.name(), flags);
}

void becomeRoot(const std::string& root) {
  if (::chdir(root.c_str()) != 0 || ::syscall(SYS_pivot_root, ".", ".") != 0 ||
      ::umount2(".", MNT_DETACH) != 0)
    cannot("change the root");
}

std::vector<int> neededCapabilities(bool attributes) {
  std::vector<int> needed{CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_FOWNER,      CAP_FSETID,
                          CAP_MKNOD, CAP_SETFCAP,      CAP_SYS_RESOURCE};
  // The kernel knows no smaller right for attributes like those of layered file systems.
  if (attributes) needed.push_back(CAP_SYS_ADMIN);
  return needed;
}

}  // namespace

int Enclosure::namespaces() {
  return CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;
}

Enclosure::Enclosure(std::string destination, bool attributes, std::vector<std::string> folders)
    : destination_(std::move(destination)), attributes_(attributes), folders_(std::move(folders)) {
  std::error_code error;
  destination_ = fs::absolute(destination_, error).lexically_normal();
  while (destination_.size() > 1 && destination_.back() == '/') destination_.pop_back();
  if (destination_ == "/")
    throw Failure(kExitFileSelection, "the destination '/' is this machine's own root");
  constexpr mode_t kNewDestination = 0777;  // less what this process's mask takes away
  if (::mkdir(destination_.c_str(), kNewDestination) != 0 && !fs::is_directory(destination_, error))
    throw systemFailure(kExitFileSelection, "cannot create the directory '" + destination_ + "'");
}

void Enclosure::enter() const {
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    cannot("make the mounts private");
  std::error_code error;
  const fs::path working = fs::current_path(error);
  const Held destination(destination_);
  if (!destination.there()) cannot("open '" + destination_ + "'");
  const Held own(fs::path(host::ownProgram()).parent_path());
  const Held null(kNull);
  const Held cache(kLoaderCache);
  std::vector<Held> folders;
  for (const std::string& folder : folders_) folders.emplace_back(folder);

  // The new root grows on the one place that is known to be a folder.
  const std::string root = destination_;
  if (::mount("enclosure", root.c_str(), "tmpfs", kTame | MS_NOEXEC, "mode=755") != 0)
    cannot("mount a new root");
  showPrograms(root);
  if (own.there() && ::access((root + own.name()).c_str(), F_OK) != 0)
    showFolder(root, own, MS_RDONLY | kTame);
  showFile(root, cache, MS_RDONLY | kTame);
  showFile(root, null, MS_NOSUID | MS_NOEXEC);
  for (const Held& folder : folders) showFolder(root, folder, kTame | MS_NOEXEC);
  // Its own processes only, where the kernel can leave out the rest of what is there;
  // nothing that is needed asks for more, so older ones go without.
  makeFolders(root + "/proc");
  ::mount("proc", (root + "/proc").c_str(), "proc", kTame | MS_NOEXEC | MS_RDONLY, "subset=pid");
  showFolder(root, destination, kTame);
  makeFolders(root + working.string());

  becomeRoot(root);
  if (::mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kTame | MS_NOEXEC,
              nullptr) != 0)
    cannot("protect the root");
  // A destination may have been given as seen from there.
  if (::chdir(working.c_str()) != 0 && ::chdir("/") != 0) cannot("change the working directory");
  try {
    host::confine(neededCapabilities(attributes_), host::Use::kFiles);
  } catch (const std::runtime_error& problem) {
    throw Failure(kExitSystem, std::string("cannot confine rsync: ") + problem.what());
  }
}

bool canEnclose() { return ::geteuid() == 0; }

}  // namespace qxrsync
