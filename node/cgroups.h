// Which controllers of control groups the host offers, in which generation, and where
// a container's limits are in them.
#ifndef QX_NODE_CGROUPS_H
#define QX_NODE_CGROUPS_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/mounts.h"
#include "node/host.h"

namespace node {

/// A host may have hierarchies of both generations at once; a controller is in
/// at most one of them.
struct CgroupLayout {
  /// Controllers in hierarchies of the first generation, and where these are mounted.
  std::map<std::string, std::string> v1;
  std::string v2Mount;       ///< where the second generation is mounted; may be empty
  std::set<std::string> v2;  ///< its controllers
};

/// A line of a text like /proc/PID/cgroup: "4:cpu,cpuacct:/path", and "0::/path" of the
/// second generation.
struct CgroupLine {
  std::string controllers;
  std::string path;
};
std::vector<CgroupLine> parseCgroupLines(std::string_view text);

/// The name of the group that a container's limits lie on. The group that the guest
/// sees as its root is below, so that nothing inside can change them.
std::string limitGroupName(unsigned id);

/// The name of the group of LXC's monitor of the container.
std::string monitorGroupName(unsigned id);

/// The path, in a hierarchy, of that group of limits: from a text like /proc/PID/cgroup of a
/// process in the container. `controller` is one of the first generation, or empty
/// for the second. Nothing when the process is in no such group.
std::optional<std::string> limitGroupOf(std::string_view cgroups, std::string_view controller,
                                        unsigned id);

/// The file of a limit, such as "pids.max", of a running container with this init;
/// nothing when the process has ended or is elsewhere. The part of the name before the
/// first dot is the controller.
std::optional<std::string> limitFile(const CgroupLayout& layout, unsigned id, pid_t init,
                                     const std::string& name);

/// The layout that these mounts show, without the controllers of the second generation,
/// which the mount itself lists.
CgroupLayout layoutOf(const std::vector<MountInfo>& mounts);

/// The layout of this process's mount namespace. Throws Error.
CgroupLayout readCgroupLayout();

}  // namespace node

#endif
