// The C call that tells a container's state to the process that links this.
#include <cerrno>
#include <exception>

#include "framework/qxctl.h"
#include "host/container.h"
#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/state.h"

namespace {

/// A configuration file that cannot be understood still makes its container
/// exist when the default private area is there: callers ask in order not to
/// overwrite a container, so a doubt must not read as "free".
host::Container findOrAssume(unsigned id) {
  try {
    return host::findContainer(id);
  } catch (const host::Error&) {
    host::Container container;
    const host::ShellVars base{{"VEID", std::to_string(id)}};
    container.id = id;
    container.configured = host::exists(host::configPath(id));
    container.root = "/var/lib/qx/root/" + std::to_string(id);
    container.privateArea = "/var/lib/qx/private/" + std::to_string(id);
    return container;
  }
}

}  // namespace

int qxctl_get_env_status(unsigned int ctid, qxctl_env_status_t* status, int mask) {
  if (status == nullptr || ctid < 1 || ctid > host::kMaxCtid) {
    errno = EINVAL;
    return -1;
  }
  try {
    const host::Container container = findOrAssume(ctid);
    unsigned found = 0;
    if (container.configured && host::hasPrivateArea(container)) found |= QXCTL_STATUS_EXISTS;
    if (host::isMounted(container)) found |= QXCTL_STATUS_MOUNTED;
    if (host::isRunning(ctid)) found |= QXCTL_STATUS_RUNNING;
    status->mask = found & static_cast<unsigned>(mask);
    return 0;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const std::exception&) {
    errno = EIO;
  }
  return -1;
}
