// Ext4 file systems in image files.
#ifndef QX_NODE_EXT4_IMAGE_H
#define QX_NODE_EXT4_IMAGE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace node {

/// A smaller one has no room for its own journal.
inline constexpr uint64_t kMinImageBytes = 32ULL << 20;
/// What ext4 can hold with blocks of 4 KiB.
inline constexpr uint64_t kMaxImageBytes = 16ULL << 40;
/// Bytes of a block; a file system has whole ones.
inline constexpr uint64_t kImageBlock = 4096;

/// What the superblock of an image says.
struct Ext4Facts {
  uint64_t bytes = 0;  ///< size of the file system, which may be less than the file's
  bool quota = false;  ///< it holds disk limits of users and groups
};
/// From the first 2048 bytes of an image; nothing when they are no ext4.
std::optional<Ext4Facts> parseExt4(std::string_view start);

/// Makes an image file, sparse, with an empty file system for `bytes` bytes and at
/// least `inodes` files, and tries it on the directory `mountPoint`. With `quota`
/// it holds limits of users and groups, unless this kernel cannot mount such a
/// file system. Throws Error; there is no image then.
void makeExt4Image(const std::string& image, const std::string& mountPoint, uint64_t bytes,
                   const std::optional<uint64_t>& inodes, bool quota);

/// Mounts an image, privately, enlarged to `bytes` before if it is smaller. Throws
/// Error; nothing is mounted then: kBusy when it should be enlarged and is still in
/// use ten seconds later. That it could not be enlarged for another reason is a
/// warning on standard error only: the container is worth more than its new size.
void mountExt4Image(const std::string& image, const std::string& mountPoint,
                    const std::optional<uint64_t>& bytes);

}  // namespace node

#endif
