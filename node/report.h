// What "qxctl status" and "qxctl list" say.
#ifndef QX_NODE_REPORT_H
#define QX_NODE_REPORT_H

#include <map>
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
  /// Where a file system belongs that would have the private area; empty when it is
  /// there, or nothing in the host's fstab says that it should be.
  std::string missingMount;
  Storage storage = Storage::kDirectory;  ///< what the tree lies on
  std::optional<uint64_t> imageBytes;
  bool unprivileged = false;
  std::string whyIds;  ///< why it is, or is not
  /// Of all its interfaces: those that they have while it runs, or are to have.
  std::string addresses;
  std::string configuredAddresses;  ///< where these are others
  ResourcePlan resources;
  /// By record: what the kernel holds in place of what the record says.
  std::map<std::string, std::string> heldOtherwise;
  std::string interruption;  ///< left by an interrupted migration: when, and what to do
};

/// The host, looked at once for any number of containers.
struct HostState {
  std::vector<std::string> mountPoints;
  std::string fstab;
  std::vector<std::string> warnings;  ///< see hostWarnings
  CgroupLayout cgroups;
};
/// Throws Error.
HostState readHostState();

/// Finds out the state of a container, also of one that does not exist.
StatusReport reportOn(const Container& container, const HostState& host);

/// One line: "container ID: exists, not mounted, stopped, registered", and lines
/// with when and from what it was registered, the places, what the tree lies on,
/// what the configuration says, the limits that the kernel holds while it runs, and
/// the records that limit nothing. `warnings` of the host come at the end.
std::string statusText(const StatusReport& report, const std::vector<std::string>& warnings = {});
std::string statusJson(const StatusReport& report, const std::vector<std::string>& warnings = {});

/// A table with a title line.
std::string listText(const std::vector<StatusReport>& reports);
std::string listJson(const std::vector<StatusReport>& reports);

}  // namespace node

#endif
