#include "node/ext4_image.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "host/mounts.h"
#include "host/process.h"
#include "host/text.h"
#include "node/host.h"

namespace node {
namespace {

constexpr size_t kSuperblock = 1024;

uint64_t littleEndian(std::string_view text, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = size; i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(text[at + i - 1]);
  }
  return value;
}

Ext4Facts factsOf(const std::string& image) {
  char start[2 * kSuperblock];
  const Fd fd(open(image.c_str(), O_RDONLY | O_CLOEXEC));
  const ssize_t got = fd ? pread(fd.get(), start, sizeof start, 0) : -1;
  if (got < 0) failErrno("cannot read %s", image.c_str());
  const std::optional<Ext4Facts> facts =
      parseExt4(std::string_view(start, static_cast<size_t>(got)));
  if (!facts) fail(ExitCode::kFailed, "%s is not an ext4 file system", image.c_str());
  return *facts;
}

/// The loop device goes with the mount.
void mountLoop(const std::string& image, const std::string& mountPoint, bool quota) {
  if (!exists("/dev/loop-control")) {
    fail(ExitCode::kFailed, "cannot mount %s: the host has no loop devices (/dev/loop-control)",
         image.c_str());
  }
  runProgram({"mount", "-t", "ext4", "-o",
              quota ? "loop,nosuid,nodev,usrquota,grpquota" : "loop,nosuid,nodev", "--", image,
              mountPoint});
  try {
    makePrivate(mountPoint);
  } catch (const Error&) {
    umount(mountPoint.c_str());
    throw;
  }
}

/// Whether the kernel mounts the image.
bool canMount(const std::string& image, const std::string& mountPoint, std::string& why) {
  try {
    mountLoop(image, mountPoint, factsOf(image).quota);
  } catch (const Error& error) {
    why = error.what();
    return false;
  }
  // The root of a new file system has the owner and mode of a system's root.
  const bool set = chown(mountPoint.c_str(), 0, 0) == 0 && chmod(mountPoint.c_str(), 0755) == 0;
  if (!set) why = textf("cannot set owner and mode of its root: %s", strerror(errno));
  if (umount(mountPoint.c_str()) != 0) failErrno("cannot unmount %s", mountPoint.c_str());
  return set;
}

void makeFileOfSize(const std::string& image, uint64_t bytes) {
  const Fd fd(open(image.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!fd) failErrno("cannot create %s", image.c_str());
  if (ftruncate(fd.get(), static_cast<off_t>(bytes)) != 0) {
    failErrno("cannot make %s %llu bytes long", image.c_str(),
              static_cast<unsigned long long>(bytes));
  }
}

void fillImage(const std::string& image, const std::string& mountPoint, uint64_t bytes,
               const std::optional<uint64_t>& inodes, bool quota) {
  makeFileOfSize(image, bytes);
  // The container has all of it, and a root of its own: nothing is set aside.
  std::vector<std::string> command{
      "mkfs.ext4",
      "-q",
      "-F",
      "-m",
      "0",
      "-E",
      quota ? "lazy_itable_init=1,quotatype=usrquota:grpquota" : "lazy_itable_init=1"};
  if (quota) command.insert(command.end(), {"-O", "quota"});
  // One for 16 KiB is the usual number; fewer would only save some space.
  if (inodes && *inodes > bytes / 16384) {
    command.insert(command.end(), {"-N", std::to_string(*inodes)});
  }
  command.insert(command.end(), {"--", image});
  runProgram(command);
  std::string why;
  if (canMount(image, mountPoint, why)) return;
  if (!quota) fail(ExitCode::kFailed, "%s", why.c_str());
  // A kernel without disk quotas refuses a file system that has them.
  runProgram({"tune2fs", "-O", "^quota", "--", image});
  if (!canMount(image, mountPoint, why)) fail(ExitCode::kFailed, "%s", why.c_str());
  fprintf(stderr,
          "note: this kernel has no disk quotas for ext4: limits of users and groups are kept, but "
          "not enforced\n");
}

/// Whether a loop device shows the image, be it in another mount namespace.
bool isInUse(const std::string& image) {
  struct stat file;
  if (stat(image.c_str(), &file) != 0) failErrno("cannot read %s", image.c_str());
  for (const std::string& name : listDirectory("/dev")) {
    if (!name.starts_with("loop") || !parseDecimal(name.substr(4))) continue;
    const Fd device(open(("/dev/" + name).c_str(), O_RDONLY | O_CLOEXEC));
    loop_info64 info{};
    if (device && ioctl(device.get(), LOOP_GET_STATUS64, &info) == 0 &&
        info.lo_inode == file.st_ino && info.lo_device == file.st_dev) {
      return true;
    }
  }
  return false;
}

/// Waits until no loop device shows the image any more: the kernel takes it away some
/// time after the last mount in whatever namespace.
void awaitUnused(const std::string& image) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds kTimeout{10};
  const Clock::time_point end = Clock::now() + kTimeout;
  while (isInUse(image)) {
    if (Clock::now() >= end) {
      fail(ExitCode::kBusy,
           "cannot enlarge %s: a loop device still shows it ('losetup -j %s' tells which)",
           image.c_str(), image.c_str());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

/// Enlarges an image that is not mounted. While it is mounted, the kernel would do
/// it too, but only for a node with CAP_SYS_RESOURCE, which a node that is itself a
/// container may lack.
void enlarge(const std::string& image, uint64_t bytes) {
  awaitUnused(image);
  try {
    requireProgram("resize2fs", "e2fsprogs");
    struct stat st;
    if (stat(image.c_str(), &st) != 0 ||
        (static_cast<uint64_t>(st.st_size) < bytes &&
         truncate(image.c_str(), static_cast<off_t>(bytes)) != 0)) {
      failErrno("the file cannot be enlarged");
    }
    // resize2fs insists on a check. What e2fsck has repaired is no failure.
    runProgram({"sh", "-c", "e2fsck -f -p \"$1\" || [ $? = 1 ]", "sh", image});
    runProgram({"resize2fs", image});
  } catch (const Error& error) {
    fprintf(stderr, "warning: the file system in %s keeps its size: %s\n", image.c_str(),
            error.what());
  }
}

}  // namespace

std::optional<Ext4Facts> parseExt4(std::string_view start) {
  if (start.size() < 2 * kSuperblock) return std::nullopt;
  const std::string_view block = start.substr(kSuperblock);
  constexpr uint64_t kMagic = 0xEF53;
  constexpr uint64_t kQuota = 0x100;    // of the compatible features that writers must know
  constexpr uint64_t kWideSize = 0x80;  // of the incompatible features: 64-bit block numbers
  if (littleEndian(block, 0x38, 2) != kMagic) return std::nullopt;
  const uint64_t shift = littleEndian(block, 0x18, 4) + 10;
  if (shift > 16) return std::nullopt;
  uint64_t blocks = littleEndian(block, 0x04, 4);
  if (littleEndian(block, 0x60, 4) & kWideSize) blocks |= littleEndian(block, 0x150, 4) << 32;
  if (blocks > kMaxImageBytes >> shift) return std::nullopt;
  return Ext4Facts{blocks << shift, (littleEndian(block, 0x64, 4) & kQuota) != 0};
}

void makeExt4Image(const std::string& image, const std::string& mountPoint, uint64_t bytes,
                   const std::optional<uint64_t>& inodes, bool quota) {
  requireProgram("mkfs.ext4", "e2fsprogs");
  requireProgram("tune2fs", "e2fsprogs");
  // An image of that name is complete.
  const std::string unfinished = image + ".new";
  try {
    fillImage(unfinished, mountPoint, bytes, inodes, quota);
    if (rename(unfinished.c_str(), image.c_str()) != 0) {
      failErrno("cannot rename %s to %s", unfinished.c_str(), image.c_str());
    }
  } catch (const Error&) {
    unlink(unfinished.c_str());
    throw;
  }
}

void mountExt4Image(const std::string& image, const std::string& mountPoint,
                    const std::optional<uint64_t>& bytes) {
  const Ext4Facts facts = factsOf(image);
  // Whole blocks count.
  if (bytes && *bytes / kImageBlock > facts.bytes / kImageBlock) enlarge(image, *bytes);
  try {
    mountLoop(image, mountPoint, facts.quota);
  } catch (const Error& error) {
    if (!facts.quota) throw;
    fail(error.code(),
         "%s\n(the image holds disk limits of users and groups; a kernel without disk quotas for "
         "ext4 does not mount it, unless 'tune2fs -O ^quota %s' removes them)",
         error.what(), image.c_str());
  }
}

}  // namespace node
