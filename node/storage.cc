#include "node/storage.h"

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/btrfs_tree.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/error.h"
#include "host/file.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/text.h"
#include "node/ext4_image.h"
#include "node/resources.h"

namespace node {
namespace {

constexpr std::array kNames{"directory", "ext4", "btrfs"};

std::string treeOf(const std::string& area) { return area + "/" + kTreeName; }
std::string imageOf(const std::string& area) { return area + "/" + kImageFile; }

std::optional<uint64_t> limitOf(const Container& container, const char* record) {
  const std::optional<ResourceValue> value = recordOf(container, record);
  if (!value || value->limit >= kUnlimited) return std::nullopt;
  return value->limit;
}

/// The limit of DISKSPACE. It is in KiB.
std::optional<uint64_t> wantedBytes(const Container& container) {
  const std::optional<uint64_t> kib = limitOf(container, "DISKSPACE");
  if (!kib || *kib > kMaxImageBytes / 1024) return std::nullopt;
  return *kib * 1024;
}

bool isOnBtrfs(const std::string& path) {
  struct statfs fs;
  return statfs(path.c_str(), &fs) == 0 && fs.f_type == BTRFS_SUPER_MAGIC;
}

/// The root of every subvolume has this inode number.
bool isSubvolume(const std::string& path) {
  constexpr ino_t kSubvolumeRoot = 256;
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_ino == kSubvolumeRoot &&
         isOnBtrfs(path);
}

void limitSubvolume(const std::string& tree, const std::optional<uint64_t>& bytes) {
  requireProgram("btrfs", "btrfs-progs");
  try {
    runProgram({"btrfs", "qgroup", "show", "--", tree});
  } catch (const Error&) {
    // Quotas of that file system are off: there is nothing that could limit.
    return;
  }
  runProgram({"btrfs", "qgroup", "limit", bytes ? std::to_string(*bytes) : "none", tree});
}

void makeSubvolume(const std::string& area, const StoragePlan& plan) {
  const std::string tree = treeOf(area);
  if (!isOnBtrfs(area)) {
    fail(ExitCode::kBadConfig,
         "STORAGE is 'btrfs', but %s is on a file system of another type: put private areas on a "
         "btrfs, or set STORAGE=directory",
         area.c_str());
  }
  requireProgram("btrfs", "btrfs-progs");
  runProgram({"btrfs", "subvolume", "create", tree});
  try {
    if (chmod(tree.c_str(), 0755) != 0) failErrno("cannot set the mode of %s", tree.c_str());
    limitSubvolume(tree, plan.bytes);
  } catch (const Error&) {
    rmdir(tree.c_str());
    throw;
  }
}

void makeDirectoryOf(const std::string& tree, mode_t mode) {
  if (mkdir(tree.c_str(), 0700) != 0) failErrno("cannot create directory %s", tree.c_str());
  if (chmod(tree.c_str(), mode) != 0) failErrno("cannot set the mode of %s", tree.c_str());
}

void makeImage(const std::string& area, const StoragePlan& plan) {
  const std::string tree = treeOf(area);
  // Nobody but root has business where nothing is mounted.
  makeDirectoryOf(tree, 0700);
  try {
    makeExt4Image(imageOf(area), tree, *plan.bytes, plan.inodes, plan.quota);
  } catch (const Error&) {
    rmdir(tree.c_str());
    throw;
  }
}

}  // namespace

const char* storageName(Storage storage) { return kNames.at(static_cast<size_t>(storage)); }

StoragePlan storagePlan(const Container& container) {
  StoragePlan plan;
  const std::string word = valueOf(container.vars, "STORAGE", kNames[0]);
  const auto* const found = std::find(kNames.begin(), kNames.end(), word);
  if (found == kNames.end()) {
    fail(ExitCode::kBadConfig, "STORAGE is '%s': directory, ext4 or btrfs is expected",
         word.c_str());
  }
  plan.storage = static_cast<Storage>(found - kNames.begin());
  if (plan.storage == Storage::kDirectory) return plan;
  plan.bytes = wantedBytes(container);
  plan.inodes = limitOf(container, "DISKINODES");
  plan.quota = !container.hasNoDiskQuota();
  if (plan.storage == Storage::kExt4) {
    if (!plan.bytes) {
      fail(ExitCode::kBadConfig,
           "STORAGE is 'ext4', but DISKSPACE gives no size for the image: set it in KiB, such as "
           "DISKSPACE=10485760:10485760");
    }
    if (*plan.bytes < kMinImageBytes) {
      fail(ExitCode::kBadConfig,
           "DISKSPACE is %llu KiB: an image of less than %llu KiB is too small",
           static_cast<unsigned long long>(*plan.bytes / 1024),
           static_cast<unsigned long long>(kMinImageBytes / 1024));
    }
  }
  return plan;
}

void makeTree(const std::string& area, const StoragePlan& plan) {
  switch (plan.storage) {
    case Storage::kDirectory:
      return makeDirectoryOf(treeOf(area), 0755);
    case Storage::kExt4:
      return makeImage(area, plan);
    case Storage::kBtrfs:
      return makeSubvolume(area, plan);
  }
}

Storage storageOf(const std::string& area) {
  if (exists(imageOf(area))) return Storage::kExt4;
  return isSubvolume(treeOf(area)) ? Storage::kBtrfs : Storage::kDirectory;
}

std::optional<uint64_t> subvolumeLimit(const std::string& area) {
  const std::string tree = treeOf(area);
  if (!isSubvolume(tree)) return std::nullopt;
  const Fd fd(open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  btrfs_ioctl_fs_info_args info{};
  btrfs_ioctl_ino_lookup_args lookup{};
  lookup.objectid = BTRFS_FIRST_FREE_OBJECTID;
  if (!fd || ioctl(fd.get(), BTRFS_IOC_FS_INFO, &info) != 0 ||
      ioctl(fd.get(), BTRFS_IOC_INO_LOOKUP, &lookup) != 0) {
    return std::nullopt;
  }
  std::string uuid;
  for (size_t i = 0; i < sizeof info.fsid; ++i) {
    uuid += textf(i == 4 || i == 6 || i == 8 || i == 10 ? "-%02x" : "%02x", info.fsid[i]);
  }
  // The directory is there while quotas are on, the files for each group.
  const std::string group = textf("/sys/fs/btrfs/%s/qgroups/0_%llu", uuid.c_str(),
                                  static_cast<unsigned long long>(lookup.treeid));
  const auto number = [&](const char* name) -> std::optional<uint64_t> {
    std::string text = readFile(group + "/" + name).value_or("");
    while (text.ends_with('\n')) text.pop_back();
    return parseDecimal(text);
  };
  const std::optional<uint64_t> flags = number("limit_flags");
  if (!flags || (*flags & BTRFS_QGROUP_LIMIT_MAX_RFER) == 0) return std::nullopt;
  return number("max_referenced");
}

std::optional<uint64_t> imageSize(const std::string& area) {
  struct stat st;
  if (stat(imageOf(area).c_str(), &st) != 0) return std::nullopt;
  return static_cast<uint64_t>(st.st_size);
}

bool treeIsMounted(const std::string& area) {
  // One that is being made is mounted too, for a look.
  return (exists(imageOf(area)) || exists(imageOf(area) + ".new")) &&
         countMountsAt(mountPoints(), treeOf(area)) > 0;
}

bool growsWhenMounted(const Container& container) {
  if (storageOf(container.privateArea) != Storage::kExt4) return false;
  const std::optional<uint64_t> wanted = wantedBytes(container);
  const std::optional<uint64_t> size = imageSize(container.privateArea);
  return treeIsMounted(container.privateArea) && wanted && size &&
         *wanted / kImageBlock > *size / kImageBlock;
}

bool mountTree(const Container& container) {
  const std::string& area = container.privateArea;
  const Storage storage = storageOf(area);
  if (storage == Storage::kBtrfs && !container.var("DISKSPACE").empty()) {
    limitSubvolume(container.tree(), wantedBytes(container));
  }
  if (storage != Storage::kExt4 || treeIsMounted(area)) return false;
  mountExt4Image(imageOf(area), container.tree(), wantedBytes(container));
  return true;
}

bool umountTree(const std::string& area) {
  // More than one mount lies there when somebody mounted it by hand.
  while (treeIsMounted(area)) {
    if (umount(treeOf(area).c_str()) != 0) return false;
  }
  return true;
}

void removeSubvolumes(const std::string& area) {
  const std::string tree = treeOf(area);
  if (!isSubvolume(tree)) return;
  requireProgram("btrfs", "btrfs-progs");
  // Those further inside come first.
  runProgram({"find", tree, "-depth", "-type", "d", "-inum", "256", "-exec", "btrfs", "subvolume",
              "delete", "--", "{}", "+"});
}

TreeAccess::TreeAccess(const Container& container) {
  if (mountTree(container)) area_ = container.privateArea;
}

TreeAccess::~TreeAccess() {
  if (area_.empty()) return;
  try {
    if (!umountTree(area_)) {
      fprintf(stderr, "warning: cannot unmount %s: %s\n", treeOf(area_).c_str(), strerror(errno));
    }
  } catch (const Error& error) {
    fprintf(stderr, "warning: %s\n", error.what());
  }
}

}  // namespace node
