// What becomes of a container's resource records (host/resources.h) on this host.
#ifndef QX_NODE_RESOURCES_H
#define QX_NODE_RESOURCES_H

#include <string>
#include <vector>

#include "host/container.h"
#include "host/resources.h"
#include "node/cgroups.h"
#include "node/host.h"

namespace node {

/// One limit that the host's kernel holds for the container.
struct Limit {
  std::string record;  ///< name of the record, such as "NUMPROC"
  std::string key;     ///< of LXC's configuration, such as "lxc.cgroup.pids.max"
  std::string value;
};

struct ResourcePlan {
  std::vector<Limit> limits;
  /// Records that are set and limit nothing on this host.
  std::vector<std::string> unenforced;
};

/// What the container's records come to on a host of this layout. Throws Error
/// (kBadConfig) when one is malformed.
ResourcePlan planResources(const Container& container, const CgroupLayout& layout);

}  // namespace node

#endif
