// Running containers, by liblxc. Only qxctl links this: the other tools start
// many times as often and need none of it.
//
// None takes the lock; the caller does (lock.h). All throw Error.
#ifndef QX_NODE_LXC_ENGINE_H
#define QX_NODE_LXC_ENGINE_H

#include <string>
#include <vector>

#include "host/container.h"
#include "node/engine.h"
#include "node/host.h"
#include "node/resources.h"

namespace node {

/// Starts a registered container: mounts it if need be, adapts its network
/// files if the configuration was changed (adapt.h), and waits until its init
/// runs. kNotRegistered, kBadConfig; kNotFound when there is no private area, which
/// may be on a file system that is not mounted; kFailed with LXC's own last messages.
/// A container that does not start is unmounted again.
Outcome startContainer(const Container& container);

/// Asks the container's init to shut down, waits up to `timeoutSeconds`, then
/// ends what is left by force (at once when it is 0), waits for LXC's monitor, and
/// unmounts the root. kAlready when it was not running; it is unmounted then, too.
/// kBusy when it is stopped, but something else uses its files.
Outcome stopContainer(const Container& container, int timeoutSeconds);

/// Runs a command in a running container, with this process's standard input
/// and output and a small clean environment, and waits for its end. In the place of
/// terminals it gets one of its own; without any it has none. SIGINT, SIGTERM, SIGQUIT and
/// SIGHUP are passed on to it. Returns its exit status, 128 plus the
/// number of a signal that ended it, 127 when there is no such program. kNotRunning.
int execInContainer(const Container& container, const std::vector<std::string>& command);

/// A login shell of root in a running container, on a terminal of its own.
/// Returns its exit status. kNotRunning.
int enterContainer(const Container& container);

/// Joins this process's terminal to the container's console until the user leaves it or the
/// container stops. The guest has a terminal of its own there, as always. kNotRunning; kUsage
/// without a terminal; kFailed when somebody else has it.
void openConsole(const Container& container);

/// Sets the limits of a running container to what its records say. Returns
/// those that the kernel refused.
std::vector<Limit> applyLimits(const Container& container);

/// What LXC calls at certain points of a container's life: `name` and `type`
/// are the first and third argument that it gives to a hook.
void runHook(const std::string& name, const std::string& type);

}  // namespace node

#endif
