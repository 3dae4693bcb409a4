// Which mount points hold nothing to copy.
#ifndef QX_HWCALC_EXCLUDES_H
#define QX_HWCALC_EXCLUDES_H

#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "framework/hwnode_notes.h"
#include "hwcalc/mount_table.h"

namespace hwcalc {

/// How a mount point is left out.
struct MountFlags {
  bool excluded = false;
  bool contentsOnly = false;  ///< the directory itself is copied
  bool operator==(const MountFlags&) const = default;
};

/// The types that the kernel has no device for, from the text of /proc/filesystems.
std::set<std::string> parseVirtualTypes(const std::string& text);

class MountPoints {
 public:
  explicit MountPoints(std::set<std::string> virtualTypes)
      : virtualTypes_(std::move(virtualTypes)) {}

  /// Records what the entries of a table are, over what is recorded already.
  void add(const std::vector<MountEntry>& table);

  bool reiserfsSeen() const { return reiserfsSeen_; }

  /// What is recorded, without trailing slashes.
  const std::map<std::string, MountFlags>& points() const { return points_; }

  /// The paths to exclude, in the order of the paths. A mount point inside another
  /// one is dropped where the outer one's path already takes it out, that is when
  /// that is excluded or taken contents-only.
  std::list<QXA::QXAExcludePath> excludes() const;

 private:
  bool isTakenOutAbove(const std::string& path) const;

  std::set<std::string> virtualTypes_;
  std::map<std::string, MountFlags> points_;
  bool reiserfsSeen_ = false;
};

}  // namespace hwcalc

#endif
