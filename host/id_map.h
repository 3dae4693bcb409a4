// Containers whose root is nobody on the host: a user namespace, and files that
// the kernel shows to it with the owners that they have on disk.
#ifndef QX_HOST_ID_MAP_H
#define QX_HOST_ID_MAP_H

#include <optional>
#include <string>
#include <string_view>

#include "host/container.h"
#include "host/fd.h"

namespace host {

/// User and group ids 0 to count-1 of the container are first, first+1, … on the
/// host. Ids from `count` on do not exist in the container.
struct IdMap {
  unsigned first = 1000000;
  unsigned count = 65536;
};

/// Why a container is privileged where somebody has decided so.
inline constexpr char kPrivilegedByChoice[] = "UNPRIVILEGED=no";

struct IdChoice {
  std::optional<IdMap> map;  ///< nothing for a container whose ids are the host's
  std::string why;           ///< as in "UNPRIVILEGED=no", fit to follow "because"
};

/// Whose ids a container has. UNPRIVILEGED=yes or no and UNPRIVILEGED_IDS=FIRST:COUNT of the
/// configuration decide; without the former, what was chosen when the container was
/// registered. One that is not registered yet is unprivileged where this host can, which is
/// tried. One that was registered when nothing was chosen yet is privileged. Throws Error
/// (kBadConfig) for words and ranges that do not fit.
IdChoice idChoiceOf(const Container& container);

/// The map of that choice.
std::optional<IdMap> idMapOf(const Container& container);

/// Whether a text like that of /etc/subuid sets all of these ids aside for root, in
/// one line.
bool setsAside(std::string_view text, const IdMap& map);

/// Where the host has newuidmap, LXC insists on ids that are set aside for root in
/// /etc/subuid and /etc/subgid, so that no user is given them. Throws Error
/// (kBadConfig) that says how to do that.
void requireSetAside(const IdMap& map);

/// Why containers that are made with these settings of the host are privileged although
/// nobody has chosen so, as far as it is for ids that are not set aside, with the remedy;
/// empty when they are. Throws Error (kBadConfig).
std::string missingIds(const ShellVars& settings);

/// A new user namespace with these ids, which lasts while the descriptor does. Throws
/// Error (kFailed).
Fd makeUserNamespace(const IdMap& map);

/// Mounts what is mounted on `root` anew in its own place, with the owners as the user
/// namespace maps them and without its device files, which the kernel and the file system
/// must be able to. In its place and not on top: services of the host with mounts of their
/// own that are started meanwhile get copies of both, and an unmounting takes from them only
/// the lower one. Not left to LXC, which forgets it when the guest reboots. Throws Error
/// (kFailed).
void mountMapped(const std::string& root, const Fd& userNamespace);

/// Whether what is mounted on `root` shows the directory `tree` with other owners.
bool isMapped(const std::string& root, const std::string& tree);

}  // namespace host

#endif
