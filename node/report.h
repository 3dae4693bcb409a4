// What "qxctl status" and "qxctl list" say.
#ifndef QX_NODE_REPORT_H
#define QX_NODE_REPORT_H

#include <optional>
#include <string>
#include <vector>

#include "host/container.h"
#include "node/host.h"
#include "node/private_area.h"
#include "node/resources.h"
#include "node/storage.h"

namespace node {

struct StatusReport {
  Container container;
  bool exists = false;  ///< both private area and configuration file are there
  bool mounted = false;
  bool running = false;
  std::optional<Registration> registered;
  Storage storage = Storage::kDirectory;  ///< what the tree lies on
  std::optional<uint64_t> imageBytes;
  bool unprivileged = false;
  std::string whyIds;  ///< why it is, or is not
  ResourcePlan resources;
};

/// The host, looked at once for any number of containers.
struct HostState {
  std::vector<std::string> mountPoints;
  CgroupLayout cgroups;
};
/// Throws Error.
HostState readHostState();

/// Finds out the state of a container, also of one that does not exist.
StatusReport reportOn(const Container& container, const HostState& host);

/// One line: "container ID: exists, not mounted, stopped, registered", and lines
/// with when and from what it was registered, the places, what the tree lies on,
/// what the configuration says, the limits that the kernel holds while it runs, and
/// the records that limit nothing.
std::string statusText(const StatusReport& report);
std::string statusJson(const StatusReport& report);

/// A table with a title line.
std::string listText(const std::vector<StatusReport>& reports);
std::string listJson(const std::vector<StatusReport>& reports);

}  // namespace node

#endif
