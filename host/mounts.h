// What is mounted where: /proc/self/mountinfo.
#ifndef QX_HOST_MOUNTS_H
#define QX_HOST_MOUNTS_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The text with the octal escapes undone in which mountinfo and fstab write blanks.
std::string unescaped(std::string_view text);

/// The mount points that a mountinfo text lists, in its order, with its octal
/// escapes undone. Lines too short to be one are skipped.
std::vector<std::string> parseMountPoints(std::string_view mountinfo);

/// Takes what is mounted on `path` out of the group of mounts that its place or its
/// source belongs to. On most hosts every mount is shared: what is mounted on one of
/// a group appears on all, so that a bind mount would hand its own mounts back to the
/// directory that it shows. Throws Error.
void makePrivate(const std::string& path);

/// Makes set-id programs and device files of what is mounted on `path` count for nothing,
/// or for what they are. Throws Error.
void setHarmless(const std::string& path, bool harmless);

/// The mount points of this process's mount namespace. Throws Error.
std::vector<std::string> mountPoints();

/// The source of what a mountinfo text has mounted on `path` last, such as
/// "/dev/loop0"; empty when nothing is.
std::string mountSource(std::string_view mountinfo, const std::string& path);

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
