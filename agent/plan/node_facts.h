// What a plan needs to know of the container host.
#ifndef QX_AGENT_PLAN_NODE_FACTS_H
#define QX_AGENT_PLAN_NODE_FACTS_H

#include <map>
#include <string>
#include <vector>

#include "framework/migrate_params.h"
#include "host/receiving_rsync.h"

namespace agent {

struct NodeFacts {
  bool containerExists = false;
  bool configExists = false;   ///< the container's configuration file
  bool areaExists = false;     ///< its private area
  bool keptExists = false;     ///< what an earlier attempt has copied, kept for this one
  bool keptIsRemoved = false;  ///< it is to begin afresh
  /// An earlier migration into the container that was interrupted: when, and what to do.
  std::string interruption;
  std::string lockHolder;    ///< what holds the container id's lock; empty when it is free
  std::string privateArea;   ///< where the copy will be
  std::string placeProblem;  ///< why it, or the root, must not be there
  long long freeBytes = 0;
  long long freeInodes = -1;  ///< -1: the file system has no fixed number
  /// What of it the copy must leave: the copy is stopped before it takes that.
  long long reservedBytes = 0;
  long long reservedInodes = 0;
  host::RsyncProblem rsync;
  /// Host of each address that is taken, without prefix: "this host" or
  /// "container 102".
  std::map<std::string, std::string> addresses;
  /// Why addresses of other containers could not be found out.
  std::vector<std::string> addressProblems;
  bool hasAddressPool = false;      ///< IP_POOL, for the address "auto"
  bool hasGateway = false;          ///< GATEWAY, of the host or of the container
  std::string distributionFile;     ///< its path, or where it would be
  std::string distributionProblem;  ///< why that file cannot be used; empty when it can
  std::string distributionScript;   ///< path; empty when the table has none
  bool distributionScriptExists = false;
  std::vector<std::string> distributions;  ///< names that the table has
  long long memoryBytes = 0;               ///< 0: not known
  long long processors = 0;
  bool cgroupV1 = false;  ///< systemd's own hierarchy, or a controller, of the generation
  bool cgroupV2 = false;
  /// User and group ids that the container has, from 0 on; 0 for a privileged one,
  /// whose ids are the host's.
  long long ids = 0;
  std::string whyIds;  ///< why it is privileged, or is not
  /// What the container's tree will lie on: "directory", "ext4" (an image of the size
  /// of its disk limits) or "btrfs".
  std::string storage = "directory";
  bool quotasOff = false;  ///< DISK_QUOTA=no: the container takes no limits of its users
  std::vector<std::string> weaknesses;  ///< of the node's set-up, with what mends each
};

/// Looks at this machine for a migration with these parameters. Throws
/// std::runtime_error when the host's settings cannot be read or name nonsense.
NodeFacts nodeFacts(const QXA::QXAMigrateP2VSerializerParams& params);

/// Why the container's private area or root must not be where these parameters have it;
/// empty when they may. Throws like nodeFacts.
std::string placeProblem(const QXA::QXAMigrateP2VSerializerParams& params);

}  // namespace agent

#endif
