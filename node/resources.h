// What becomes of a container's resource records.
//
// The table in resources.cc is the one place that says which record limits what,
// in which unit; docs/node.md shows it.
#ifndef QX_NODE_RESOURCES_H
#define QX_NODE_RESOURCES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/container.h"
#include "node/cgroups.h"
#include "node/host.h"

namespace node {

/// "barrier:limit", or "limit" alone; "unlimited" is the greatest number.
struct ResourceValue {
  uint64_t barrier = 0;  ///< the limit, where no barrier is given
  uint64_t limit = 0;
};
inline constexpr uint64_t kUnlimited = 9223372036854775807ULL;

/// Nothing when the text is malformed. Greater numbers count as unlimited.
std::optional<ResourceValue> parseResource(std::string_view text);

/// The container's record of this name, nothing when it has none. Throws Error
/// (kBadConfig) when it is malformed.
std::optional<ResourceValue> recordOf(const Container& container, const char* record);

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

/// Whether the variable is a resource record.
bool isResourceRecord(std::string_view variable);

}  // namespace node

#endif
