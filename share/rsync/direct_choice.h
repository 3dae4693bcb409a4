#ifndef QX_SHARE_RSYNC_DIRECT_CHOICE_H
#define QX_SHARE_RSYNC_DIRECT_CHOICE_H

#include <optional>

#include "share/engine/ip_address.h"

namespace qxrsync {

// Whether the engines may have a connection of their own, as the environment says:
// QX_RSYNC_DIRECT, "auto" or "off"; and at the server QX_RSYNC_NODE, the address from
// which it sees the node's ssh come.

/// Throws Failure (status 1) if QX_RSYNC_DIRECT says anything else.
bool directAllowed();

/// The node's address, for the server to say; nothing if there is to be no direct
/// connection, or this kernel's random numbers are not good enough for one, or an
/// earlier pass could not reach the node. Throws as above.
std::optional<engine::IpAddress> nodeToReach();

/// Spares the passes that follow the time that this one has waited in vain.
void rememberUnreachable();

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_DIRECT_CHOICE_H
