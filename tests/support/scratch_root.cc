#include "support/scratch_root.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/child_test.h"

namespace test_support {
namespace fs = std::filesystem;
namespace {

[[noreturn]] void unavailable(const std::string& what) {
  const int error = errno;
  throw Unavailable{what + ": " + std::strerror(error)};
}

void mountOn(const std::string& target, const std::string& source, const char* type,
             unsigned long flags, const std::string& options = "") {
  if (mount(source.c_str(), target.c_str(), type, flags, options.c_str()) != 0) {
    unavailable("mounting " + target);
  }
}

// Shows `source` of the machine at `target`, which is made when missing.
void bindAt(const std::string& target, const std::string& source, bool readOnly) {
  if (fs::is_directory(source)) {
    fs::create_directories(target);
  } else if (!fs::exists(target)) {
    fs::create_directories(fs::path(target).parent_path());
    std::ofstream(target).flush();
  }
  mountOn(target, source, nullptr, MS_BIND);
  mount_attr attributes{};
  attributes.attr_set = MOUNT_ATTR_RDONLY;
  if (readOnly &&
      mount_setattr(AT_FDCWD, target.c_str(), 0, &attributes, sizeof(attributes)) != 0) {
    unavailable("making " + target + " read-only");
  }
}

void writeMap(const char* path, const std::string& text) {
  std::ofstream stream(path);
  stream << text;
  stream.close();
  if (!stream) unavailable(path);
}

// The build tree of the running test program, which must stay reachable: plug-ins
// and helpers lie there, and coverage counters are written there.
fs::path buildTree() {
  const fs::path program = fs::read_symlink("/proc/self/exe");
  for (fs::path at = program.parent_path(); at != at.root_path(); at = at.parent_path()) {
    if (fs::exists(at / "CMakeCache.txt")) return at;
  }
  return program.parent_path();
}

bool isBelow(const std::string& path, const std::string& directory) {
  return path.compare(0, directory.size() + 1, directory + "/") == 0;
}

// True when the files of the machine's root user are those of this process's.
bool isRealRoot() {
  unsigned long inside = 0;
  unsigned long outside = 0;
  unsigned long count = 0;
  std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
  return inside == 0 && outside == 0 && count == 4294967295;
}

// Links in the directory `root` + `directory` to everything that the machine has
// in its `directory`, which is below /usr.
void linkToMachine(const std::string& root, const std::string& directory) {
  const fs::path machine = SCRATCH_DIR + directory;
  for (const fs::directory_entry& entry : fs::directory_iterator(root + machine.string())) {
    const fs::path name = entry.path().filename();
    fs::create_symlink(machine / name, fs::path(root + directory) / name);
  }
}

void makeUsr(const std::string& root) {
  const std::string scratch = root + SCRATCH_DIR;
  fs::create_directory(root + "/usr");
  if (isRealRoot()) {
    fs::create_directories(scratch + "/usr-upper");
    fs::create_directories(scratch + "/usr-work");
    mountOn(root + "/usr", "overlay", "overlay", 0,
            "lowerdir=/usr,upperdir=" + scratch + "/usr-upper,workdir=" + scratch + "/usr-work");
  } else {
    // In an overlay the directories would belong to a user that is unknown here,
    // and nothing could be put into them.
    bindAt(scratch + "/usr", "/usr", true);
    linkToMachine(root, "/usr");
  }
  for (const std::string name : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"}) {
    if (fs::is_symlink(name)) {
      fs::create_symlink(fs::read_symlink(name), root + name);
    } else if (fs::is_directory(name)) {
      bindAt(root + name, name, true);
    }
  }
}

// Where /usr consists of links to the machine's: makes the directories above an
// entry real ones, with links in them.
void openUsrFor(const std::string& entryPath) {
  std::string path = entryPath;
  for (const std::string merged : {"/bin", "/sbin", "/lib"}) {
    if (isBelow(path, merged) && fs::is_symlink(merged)) path = "/usr" + path;
  }
  if (!isBelow(path, "/usr")) return;
  for (size_t end = path.find('/', 5); end != std::string::npos; end = path.find('/', end + 1)) {
    const std::string directory = path.substr(0, end);
    if (!fs::is_symlink(directory)) continue;
    fs::remove(directory);
    fs::create_directory(directory);
    linkToMachine("", directory);
  }
}

void makeDev(const std::string& root) {
  for (const std::string name : {"null", "zero", "full", "random", "urandom", "tty"}) {
    bindAt(root + "/dev/" + name, "/dev/" + name, false);
  }
  fs::create_directory(root + "/dev/shm");
  fs::permissions(root + "/dev/shm", static_cast<fs::perms>(01777));
  fs::create_symlink("/proc/self/fd", root + "/dev/fd");
  fs::create_symlink("/proc/self/fd/0", root + "/dev/stdin");
  fs::create_symlink("/proc/self/fd/1", root + "/dev/stdout");
  fs::create_symlink("/proc/self/fd/2", root + "/dev/stderr");
}

void makeEtc(const std::string& root) {
  makeEntry(root, fileAt("/etc/passwd",
                         "root:x:0:0:root:/root:/bin/sh\n"
                         "nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin\n"));
  makeEntry(root, fileAt("/etc/group", "root:x:0:\nnogroup:x:65534:\n"));
  makeEntry(root, fileAt("/etc/nsswitch.conf", "passwd: files\ngroup: files\nhosts: files\n"));
  makeEntry(root, fileAt("/etc/hosts", "127.0.0.1 localhost\n"));
  if (fs::exists("/etc/ld.so.cache")) fs::copy("/etc/ld.so.cache", root + "/etc/ld.so.cache");
  if (fs::exists("/etc/alternatives")) {
    bindAt(root + "/etc/alternatives", "/etc/alternatives", true);
  }
}

void makeBase(const std::string& root) {
  for (const char* name : {"/root", "/home", "/mnt", "/run", "/var/lib", "/var/log", "/proc"}) {
    fs::create_directories(root + name);
  }
  fs::create_symlink("/run", root + "/var/run");
  for (const char* name : {"/tmp", "/var/tmp"}) makeEntry(root, dirAt(name, 01777));
  makeEntry(root, fileAt(CALL_LOG, "", 0666));
}

// A file of the test in /proc: covers the one that is there.
void coverProcFile(const TreeEntry& entry, int number) {
  const std::string cover = std::string(SCRATCH_DIR) + "/proc-" + std::to_string(number);
  makeEntry("/", {TreeEntry::FILE, cover, entry.text, entry.mode});
  mountOn(entry.path, cover, nullptr, MS_BIND);
}

void moveInto(const std::string& root) {
  // The old root comes to lie on the new one, from where it is taken away.
  if (chdir(root.c_str()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0 ||
      umount2(".", MNT_DETACH) != 0 || chdir("/") != 0) {
    unavailable("changing the root directory");
  }
}

[[noreturn]] void endLike(int status) {
  if (WIFSIGNALED(status)) {
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    signal(WTERMSIG(status), SIG_DFL);
    raise(WTERMSIG(status));
  }
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

// First process of the pid namespace: collects orphans until `child` has ended.
[[noreturn]] void beInit(pid_t child, int statusFd) {
  for (;;) {
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    if (ended != child) continue;
    if (write(statusFd, &status, sizeof(status)) != sizeof(status)) _exit(1);
    _exit(0);
  }
}

pid_t forkTied() {
  const pid_t pid = fork();
  if (pid == -1) unavailable("fork");
  if (pid == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
  return pid;
}

}  // namespace

void enterNamespaces() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  const int flags = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUTS | CLONE_NEWIPC;
  if (unshare(flags | (uid == 0 ? 0 : CLONE_NEWUSER)) != 0) unavailable("namespaces");
  if (uid != 0) {
    writeMap("/proc/self/setgroups", "deny");
    writeMap("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n");
    writeMap("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n");
  }
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) unavailable("pipe");
  const pid_t init = forkTied();
  if (init != 0) {
    close(pipe[1]);
    int status = 0;
    const bool told = read(pipe[0], &status, sizeof(status)) == sizeof(status);
    int initStatus = 0;
    while (waitpid(init, &initStatus, 0) == -1 && errno == EINTR) {
    }
    endLike(told ? status : initStatus);
  }
  close(pipe[0]);
  const pid_t child = forkTied();
  if (child != 0) beInit(child, pipe[1]);
  close(pipe[1]);
}

void enterScratchRoot(const std::string& mountPoint, const std::vector<TreeEntry>& entries) {
  const fs::path build = buildTree();
  umask(022);
  // Before anything else, so that no mount shows up on the machine.
  mountOn("/", "none", nullptr, MS_REC | MS_PRIVATE);
  const std::string& root = mountPoint;
  mountOn(root, "scratch", "tmpfs", 0, "mode=0755");
  makeBase(root);
  makeUsr(root);
  makeDev(root);
  makeEtc(root);
  mountOn(root + "/proc", "proc", "proc", 0);
  bindAt(root + QX_SOURCE_DIR, QX_SOURCE_DIR, true);
  bindAt(root + build.string(), build, false);
  moveInto(root);
  // Only now, when no link of the test's can lead out to the machine.
  int covers = 0;
  for (const TreeEntry& entry : entries) {
    if (isBelow(entry.path, "/proc")) {
      coverProcFile(entry, ++covers);
    } else {
      if (!isRealRoot()) openUsrFor(entry.path);
      makeEntry("/", entry);
    }
  }
}

}  // namespace test_support
