// What is mounted where: /proc/self/mountinfo.
#ifndef QX_HOST_MOUNTS_H
#define QX_HOST_MOUNTS_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

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

/// How often `path` (symbolic links resolved) occurs in `points`.
size_t countMountsAt(const std::vector<std::string>& points, const std::string& path);

/// The mount points strictly below `path` (symbolic links resolved).
std::vector<std::string> mountsBelow(const std::vector<std::string>& points,
                                     const std::string& path);

}  // namespace host

#endif
