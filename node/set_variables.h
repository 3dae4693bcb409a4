// Changing variables of a container's configuration file.
#ifndef QX_NODE_SET_VARIABLES_H
#define QX_NODE_SET_VARIABLES_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/container.h"
#include "host/shell_vars.h"
#include "node/cgroups.h"
#include "node/host.h"

namespace node {

using Assignments = std::vector<std::pair<std::string, std::string>>;

/// Reads words NAME=VALUE. Throws Error (kUsage): for a malformed word, and for
/// VEID, VE_ROOT, VE_PRIVATE and LOCKDIR, which cannot change while files lie there.
Assignments parseAssignments(const std::vector<std::string>& words);

/// `text` with these variables set: a line that assigns one is replaced, others
/// and comments stay, what is new comes last. Reads back as the old variables
/// with the new ones over them; `known` is as for parseShellVars.
std::string withAssignments(std::string_view text, const Assignments& assignments,
                            const ShellVars& known);

/// Refuses values of HOSTNAME, IP_ADDRESS, NETIF, GATEWAY, NAMESERVER and
/// SLMMEMORYLIMIT with which the container could not live: `container` has them
/// already, and only variables of `assignments` are looked at. Throws Error
/// (kUsage) that names the value.
void checkSettings(const Container& container, const Assignments& assignments);

/// When variables count that were changed while the container runs; some, such as a note
/// or ONBOOT, mean nothing to what runs.
struct Effects {
  std::vector<std::string> now;
  std::vector<std::string> nextStart;
  std::vector<std::string> never;  ///< resource records that limit nothing on this host
};
/// `container` has the new values.
Effects effectsOf(const Container& container, const std::vector<std::string>& changed,
                  const CgroupLayout& layout);

/// Does this to the container's configuration file, unless what comes out could
/// not be started from. Returns the container as it is then. Throws Error.
Container setVariables(const Container& container, const Assignments& assignments);

}  // namespace node

#endif
