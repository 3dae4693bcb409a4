#ifndef QX_SHARE_ENGINE_MOUNTS_BELOW_H
#define QX_SHARE_ENGINE_MOUNTS_BELOW_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "share/engine/rules.h"
#include "share/engine/wire.h"

namespace engine {

/// A file system that is seen in a tree.
struct MountBelow {
  std::string path;    ///< below the top of the tree; empty for what holds the top
  std::string type;    ///< such as "ext4"
  std::string shown;   ///< the folder of the file system that is seen there
  dev_t superblock{};  ///< as the kernel counts file systems
  dev_t device{};      ///< as stat says; not the same on btrfs

  bool operator==(const MountBelow&) const = default;
};

/// What is mounted in the tree at `top`, an absolute path without symbolic links, and
/// seen, the top's own file system first. What the rules exclude is left out.
std::vector<MountBelow> mountsBelow(const std::string& top, const Rules& rules);

/// The absolute path of one that is below the top.
std::string absolutePath(const std::string& top, const std::string& below);

/// Whether the kernel's events tell of every change on file systems of this type.
bool tellsOfChanges(const std::string& type);

/// Whether a rule leaves out the directory, or one on the way to it.
bool isExcluded(const Rules& rules, std::string_view directory);

/// Whether a path is this one or below it.
bool isAtOrBelow(std::string_view path, std::string_view ancestor);

void putMounts(Buffer& to, const std::vector<MountBelow>& mounts);
/// Throws ProtocolError.
std::vector<MountBelow> takeMounts(Decoder& from);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_MOUNTS_BELOW_H
