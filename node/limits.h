// The limits of a running container, as the kernel holds them.
#ifndef QX_NODE_LIMITS_H
#define QX_NODE_LIMITS_H

#include <sys/types.h>

#include <optional>
#include <string>

#include "node/cgroups.h"
#include "node/resources.h"

namespace node {

/// What the kernel holds for a container whose init this is; nothing when the limit is
/// none of a control group, or its file cannot be read.
std::optional<std::string> heldLimit(const CgroupLayout& layout, unsigned id, pid_t init,
                                     const Limit& limit);

/// Whether the kernel's value means what was to be set: it rounds sizes to whole pages,
/// and its first generation has a number for "unlimited".
bool isHeld(const Limit& limit, const std::string& held);

/// Held by a control group, and not from the start on by LXC.
bool isInGroups(const Limit& limit);

/// Sets it anew. False when the kernel refuses. What is no limit of a control group
/// counts at start only, and is left alone.
bool setLimit(const CgroupLayout& layout, unsigned id, pid_t init, const Limit& limit);

}  // namespace node

#endif
