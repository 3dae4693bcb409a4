#ifndef QX_SHARE_RSYNC_FILE_SYSTEMS_H
#define QX_SHARE_RSYNC_FILE_SYSTEMS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "share/rsync/handshake.h"

namespace qxrsync {

/// What the file system of a directory can hold, found out by asking for its
/// attributes. Writes nothing. A path that cannot be asked holds nothing.
Offer probeByReading(const std::string& directory);

/// The same, found out by setting an access list and an extended attribute on a
/// nameless (or at once removed) file in the directory; in its parent if the
/// directory is yet to be made. Extended attributes count as held when the user
/// or, for root, the trusted ones are. Whatever goes wrong means "not held".
Offer probeByWriting(const std::string& directory);

/// Whether modification times in the directory (or its parent, as above) are
/// kept to the nanosecond, found out in the same way.
bool keepsNanoseconds(const std::string& directory);

/// Bytes in use on everything below a directory, so that a sender's share can
/// be told before all its files are listed. Only "/" is known: the sum over all
/// mounted block devices. 0 means unknown.
std::uint64_t usedBytesBelow(const std::string& directory);

/// The pure half of usedBytesBelow: mount points worth asking, each file system
/// once, from the text of /proc/self/mountinfo. Never one that lives on
/// another machine, as that one may not answer.
std::vector<std::string> localMountPoints(std::string_view mountinfo);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_FILE_SYSTEMS_H
