// Where a container's files may lie.
#ifndef QX_HOST_PLACE_H
#define QX_HOST_PLACE_H

#include <string>

#include "host/container.h"

namespace host {

/// Refuses (kBadConfig) a path on which anybody but root has had a hand: each directory
/// from "/" down to its parent must be root's, not writable for others, and no symbolic
/// link. What is missing from some point on is no obstacle: root will make it. Once this
/// is so, nobody but root can change what the path leads to. `variable` is named in the
/// error.
void requireRootsPath(const char* variable, const std::string& path);

/// Refuses (kBadConfig) a private area that does not lie on such a path, is itself not
/// root's, or lies inside another private area, be it of a container that is no longer
/// configured: the guest has made what is in there.
void requireRootsArea(const std::string& privateArea);

/// Refuses (kBadConfig) a container whose root or private area does not lie on such a path,
/// or is, holds or lies in those of another container. Containers whose files are malformed
/// are passed over. A container that is none yet may lack a root.
void requireOwnPlaces(const Container& container);

/// Where on the way to a private area /etc/fstab has a file system that is not mounted;
/// empty when nothing is missing. What were put there would lie on another file system, and
/// disappear when that one is mounted.
std::string unmountedPlace(const std::string& privateArea);

/// Refuses (kNotFound) a private area to which the way is not mounted.
void requireMounted(const std::string& privateArea);

/// Makes the node's own directories of private areas, roots and templates, and takes from
/// others whatever right they have there: set-id programs and passwords of whole systems
/// lie in them. Throws Error.
void makeStateDirectories();

/// Lets the group `gid`, which is that of the root of an unprivileged container, pass
/// through the directories above `path`, and do nothing else there. Throws Error: kBadConfig
/// when another group passes already.
void letPass(const std::string& path, unsigned gid);

}  // namespace host

#endif
