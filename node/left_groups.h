// What a container that has ended leaves among the host's control groups.
#ifndef QX_NODE_LEFT_GROUPS_H
#define QX_NODE_LEFT_GROUPS_H

#include <string>
#include <string_view>
#include <vector>

#include "node/cgroups.h"

namespace node {

/// The directories where LXC puts the groups of a container, whether they exist or not:
/// beside the group of the host's process 1, whose /proc/1/cgroup `firstProcess` is.
/// First its monitor's in every hierarchy, then the container's.
struct GroupPlaces {
  std::vector<std::string> monitor;
  std::vector<std::string> limits;
};
GroupPlaces groupPlaces(const CgroupLayout& layout, std::string_view firstProcess, unsigned id);

/// Removes them, for a container whose init has ended: LXC does not start one beside
/// them ("Numerical result out of range"). A process that lives in the container's own
/// is killed, as a command that entered it in its last moment; LXC's monitor is waited
/// for. Throws Error (kBusy), which names the process, when one is left after some seconds.
void clearGroups(unsigned id);

/// Removes one group with all below it, killing (`kills`) or waiting for what is in it.
/// Throws Error (kBusy) after `seconds`.
void clearGroup(const std::string& group, bool kills, int seconds);

}  // namespace node

#endif
