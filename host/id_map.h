// Containers whose root is nobody on the host: a user namespace, and files that
// the kernel shows to it with the owners that they have on disk.
#ifndef QX_HOST_ID_MAP_H
#define QX_HOST_ID_MAP_H

#include <optional>
#include <string>
#include <string_view>

#include "host/container.h"

namespace host {

/// User and group ids 0 to count-1 of the container are first, first+1, … on the
/// host. Ids from `count` on do not exist in the container.
struct IdMap {
  unsigned first = 1000000;
  unsigned count = 65536;
};

/// What UNPRIVILEGED=yes and UNPRIVILEGED_IDS=FIRST:COUNT of the configuration say;
/// nothing for a container whose ids are the host's. Throws Error (kBadConfig).
std::optional<IdMap> idMapOf(const Container& container);

/// Whether a text like that of /etc/subuid sets all of these ids aside for root, in
/// one line.
bool setsAside(std::string_view text, const IdMap& map);

/// Where the host has newuidmap, LXC insists on ids that are set aside for root in
/// /etc/subuid and /etc/subgid, so that no user is given them. Throws Error
/// (kBadConfig) that says how to do that.
void requireSetAside(const IdMap& map);

/// Mounts the mounted directory `root` on itself once more, with mapped owners and
/// without its device files, which the kernel and the file system must be able to.
/// Not left to LXC, which forgets it when the guest reboots. Throws Error (kFailed).
void mountMapped(const std::string& root, const IdMap& map);

/// Whether what is mounted on `root` shows the directory `tree` with other owners.
bool isMapped(const std::string& root, const std::string& tree);

}  // namespace host

#endif
