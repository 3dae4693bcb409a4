// The C call that tells a container's state to the process that links this.
#include <cerrno>
#include <exception>

#include "framework/qxctl.h"
#include "node/container.h"
#include "node/error.h"
#include "node/file.h"
#include "node/paths.h"
#include "node/state.h"

namespace {

/// A configuration file that cannot be understood still makes its container
/// exist when the default private area is there: callers ask in order not to
/// overwrite a container, so a doubt must not read as "free".
node::Container findOrAssume(unsigned id) {
  try {
    return node::findContainer(id);
  } catch (const node::Error&) {
    node::Container container;
    const node::ShellVars base{{"VEID", std::to_string(id)}};
    container.id = id;
    container.configured = node::exists(node::configPath(id));
    container.root = "/var/lib/qx/root/" + std::to_string(id);
    container.privateArea = "/var/lib/qx/private/" + std::to_string(id);
    return container;
  }
}

}  // namespace

int qxctl_get_env_status(unsigned int ctid, qxctl_env_status_t* status, int mask) {
  if (status == nullptr || ctid < 1 || ctid > node::kMaxCtid) {
    errno = EINVAL;
    return -1;
  }
  try {
    const node::Container container = findOrAssume(ctid);
    unsigned found = 0;
    if (container.configured && node::hasPrivateArea(container)) found |= QXCTL_STATUS_EXISTS;
    if (node::isMounted(container)) found |= QXCTL_STATUS_MOUNTED;
    if (node::isRunning(ctid)) found |= QXCTL_STATUS_RUNNING;
    status->mask = found & static_cast<unsigned>(mask);
    return 0;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const std::exception&) {
    errno = EIO;
  }
  return -1;
}
