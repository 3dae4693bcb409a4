// The place in which a host script works on a container's tree.
#ifndef QX_NODE_SANDBOX_H
#define QX_NODE_SANDBOX_H

#include <string>

#include "host/fd.h"
#include "node/host.h"

namespace node {

/// Where the script lies in there: in the private /dev, which vanishes with
/// the namespace.
inline constexpr char kScriptInSandbox[] = "/dev/qx-script";

/// Moves this process, the first one of a new pid namespace, into mount, uts,
/// ipc and network namespaces of its own and makes `tree` its root: device files
/// of the tree do not work, /proc is new and read-only, /dev holds null, zero,
/// full, random, urandom, tty and the script. The host's mounts are gone from
/// the namespace. An empty `hostname` leaves the name as it is. With a user namespace,
/// which may be none, the tree's files have the owners that it maps. The process keeps its
/// rights: confine() takes them. Throws Error; the process is then fit for nothing but
/// ending.
void enterSandbox(const std::string& tree, const std::string& hostname, const std::string& script,
                  const Fd& userNamespace);

/// Makes this process root of the user namespace, and nobody outside. Throws Error.
void joinUserNamespace(const Fd& userNamespace);

}  // namespace node

#endif
