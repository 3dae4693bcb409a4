// What is mounted where: mountinfo, and tables as fstab is one.
#ifndef QX_HOST_MOUNTS_H
#define QX_HOST_MOUNTS_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The text with the octal escapes undone in which mountinfo and fstab write blanks.
std::string unescaped(std::string_view text);

/// One mount of /proc/PID/mountinfo, octal escapes undone.
struct MountInfo {
  std::string device;   ///< of the file system: "8:1"
  std::string root;     ///< the folder of the file system that it shows
  std::string point;    ///< where
  std::string type;     ///< of the file system
  std::string source;   ///< such as "/dev/sda1"; what the type wants it to be
  std::string options;  ///< of the file system: for control groups, the controllers

  bool hasOption(std::string_view name) const;
};

/// The mounts that a mountinfo text lists, in its order. Lines that are none are skipped.
std::vector<MountInfo> parseMountInfo(std::string_view mountinfo);

/// The mounts of this process's mount namespace. Throws Error.
std::vector<MountInfo> currentMounts();

/// One line of a table as /etc/fstab or /proc/mounts is one, escapes undone.
struct TableLine {
  std::string device, point, type, options;

  bool hasOption(std::string_view name) const;
};

/// The lines of such a text that have a type at least.
std::vector<TableLine> parseMountTable(std::string_view text);

/// Takes what is mounted on `path` out of the group of mounts that its place or its
/// source belongs to. On most hosts every mount is shared: what is mounted on one of
/// a group appears on all, so that a bind mount would hand its own mounts back to the
/// directory that it shows. Throws Error.
void makePrivate(const std::string& path);

/// Unmounts what is mounted on `path`, here and where copies of it have come to; whoever still
/// uses its files keeps them. Throws Error.
void detach(const std::string& path);

/// Adds mount(2)'s `flags` to those of what is mounted on `path`: repeated are the ones that
/// somebody with more rights has set, which a remount must not lack. False with errno set
/// on failure.
bool addMountFlags(const std::string& path, unsigned long flags);

/// Makes set-id programs and device files of what is mounted on `path` count for nothing,
/// or for what they are. Throws Error.
void setHarmless(const std::string& path, bool harmless);

/// The mount points of this process's mount namespace. Throws Error.
std::vector<std::string> mountPoints();

/// The source of what is mounted on `path` last, such as "/dev/loop0"; empty when
/// nothing is.
std::string mountSource(const std::vector<MountInfo>& mounts, const std::string& path);

/// How often `path` (symbolic links resolved) occurs in `points`.
size_t countMountsAt(const std::vector<std::string>& points, const std::string& path);

/// The mount points strictly below `path` (symbolic links resolved).
std::vector<std::string> mountsBelow(const std::vector<std::string>& points,
                                     const std::string& path);

/// The place on the way to `path` where an fstab text has a file system that is not
/// mounted: the deepest one. Empty when nothing is missing.
std::string missingMount(std::string_view fstab, const std::vector<std::string>& points,
                         const std::string& path);

}  // namespace host

#endif
