// What a container's file tree lies on: a directory of the private area, a btrfs
// subvolume in its place, or an ext4 file system in an image file beside it.
//
// The host's settings (or the container's own) say in STORAGE what a new private
// area gets; of an existing one, what lies there counts. An image is mounted on
// the tree's directory for as long as the container is mounted, or for the time
// of one TreeAccess.
#ifndef QX_NODE_STORAGE_H
#define QX_NODE_STORAGE_H

#include <cstdint>
#include <optional>
#include <string>

#include "host/container.h"
#include "node/host.h"

namespace node {

enum class Storage { kDirectory, kExt4, kBtrfs };

/// The value of STORAGE that means it.
const char* storageName(Storage storage);

/// How to make a new tree.
struct StoragePlan {
  Storage storage = Storage::kDirectory;
  /// Size of an image, limit of a subvolume; from the limit of DISKSPACE, which
  /// is in KiB. Nothing when there is no limit.
  std::optional<uint64_t> bytes;
  std::optional<uint64_t> inodes;  ///< of an image; from DISKINODES
  bool quota = true;               ///< make an image that can hold quotas
};

/// What the configuration says. Throws Error (kBadConfig): for an unknown word, a
/// malformed number, an image without a size or one that is too small.
StoragePlan storagePlan(const Container& container);

/// Makes an empty tree in the private area `area`, which is a directory without
/// one. Whatever a failed attempt made is gone again. An image gets quotas when
/// this host's kernel can mount it then; otherwise it gets none, which is said on
/// standard error. Throws Error: kBadConfig when a subvolume is wanted where there
/// is no btrfs, kFailed otherwise, also when a program is missing.
void makeTree(const std::string& area, const StoragePlan& plan);

/// What the tree of this private area lies on.
Storage storageOf(const std::string& area);

/// The bytes that the kernel lets a subvolume have, by its group of quotas; nothing when
/// there is no such limit.
std::optional<uint64_t> subvolumeLimit(const std::string& area);

/// The size of an image in bytes; nothing when there is none.
std::optional<uint64_t> imageSize(const std::string& area);

/// Makes the tree's files appear at its place, and gives an image or a subvolume
/// the size that the configuration says by now: an image grows, but never shrinks.
/// False when they were there. Throws Error; nothing is mounted then.
bool mountTree(const Container& container);

/// Undoes it; does nothing when there is nothing to undo. False with errno set
/// when the kernel refuses (EBUSY).
bool umountTree(const std::string& area);

/// Whether an image is mounted on the tree's place. Throws Error.
bool treeIsMounted(const std::string& area);

/// The mounted tree is an image that is smaller than DISKSPACE says: it grows when it is
/// mounted the next time.
bool growsWhenMounted(const Container& container);

/// Removes the tree if it is a subvolume: with those that the guest made in it,
/// which no `rm` crosses. Throws Error.
void removeSubvolumes(const std::string& area);

/// The tree's files are at their place while one of these lives.
class TreeAccess {
 public:
  explicit TreeAccess(const Container& container);
  ~TreeAccess();
  TreeAccess(const TreeAccess&) = delete;
  TreeAccess& operator=(const TreeAccess&) = delete;

 private:
  std::string area_;  ///< empty when there is nothing to undo
};

}  // namespace node

#endif
