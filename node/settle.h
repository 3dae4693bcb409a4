// Waiting for what becomes of a container whose init has ended.
#ifndef QX_NODE_SETTLE_H
#define QX_NODE_SETTLE_H

#include <sys/types.h>

#include <optional>

#include "host/container.h"
#include "node/host.h"

namespace node {

/// How long LXC's monitor may take to put a container away.
inline constexpr int kSettleSeconds = 30;

/// The pid of the container's init; nothing when the container is stopped. Between
/// the two, when its init has ended and LXC's monitor still lives, it waits up to
/// `seconds` until the monitor has ended, or has started an init again because the
/// guest has rebooted. Throws Error (kBusy), which names the monitor, when neither
/// comes.
std::optional<pid_t> settledInit(unsigned id, int seconds = kSettleSeconds);

/// Throws Error (kBusy) when the container runs, once that is settled. `action`, such
/// as "unmount it", is what it has to be stopped for.
void refuseRunning(const Container& container, const char* action);

}  // namespace node

#endif
