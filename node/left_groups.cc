#include "node/left_groups.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <thread>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"
#include "node/host.h"

namespace node {
namespace {

constexpr int kSeconds = 10;

/// The group's processes, those of the groups below included. A group that goes
/// meanwhile has none.
std::vector<pid_t> processesIn(const std::string& group) {
  std::vector<pid_t> found;
  const std::string own = readFile(group + "/cgroup.procs").value_or("");
  for (const std::string_view line : splitLines(own)) {
    const std::optional<uint64_t> pid = parseDecimal(line);
    // 0 is a process that this pid namespace does not know.
    if (pid && *pid != 0) found.push_back(static_cast<pid_t>(*pid));
  }
  if (!isDirectory(group)) return found;
  try {
    for (const std::string& name : listDirectory(group)) {
      const std::string below = textf("%s/%s", group.c_str(), name.c_str());
      if (!isDirectory(below)) continue;
      const std::vector<pid_t> more = processesIn(below);
      found.insert(found.end(), more.begin(), more.end());
    }
  } catch (const Error&) {
    if (isDirectory(group)) throw;
  }
  return found;
}

/// Whether the group is gone: a group goes only when none is below it.
bool removed(const std::string& group) {
  if (!isDirectory(group)) return true;
  try {
    for (const std::string& name : listDirectory(group)) {
      const std::string below = textf("%s/%s", group.c_str(), name.c_str());
      if (isDirectory(below)) removed(below);
    }
  } catch (const Error&) {
    if (isDirectory(group)) throw;
  }
  return rmdir(group.c_str()) == 0 || errno == ENOENT;
}

}  // namespace

GroupPlaces groupPlaces(const CgroupLayout& layout, std::string_view firstProcess, unsigned id) {
  GroupPlaces places;
  for (const auto& [controllers, path] : parseCgroupLines(firstProcess)) {
    // Controllers that share a hierarchy share its mount.
    const auto v1 = layout.v1.find(controllers.substr(0, controllers.find(',')));
    const std::string mount = controllers.empty()     ? layout.v2Mount
                              : v1 != layout.v1.end() ? v1->second
                                                      : "";
    if (mount.empty()) continue;
    std::string base = path;
    // systemd is in a group of its own, which LXC leaves.
    constexpr std::string_view kInitScope = "/init.scope";
    if (base.ends_with(kInitScope)) base.resize(base.size() - kInitScope.size());
    if (!base.ends_with('/')) base += '/';
    places.monitor.push_back(mount + base + monitorGroupName(id));
    places.limits.push_back(mount + base + limitGroupName(id));
  }
  return places;
}

void clearGroup(const std::string& group, bool kills, int seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  while (!removed(group)) {
    const std::vector<pid_t> left = processesIn(group);
    if (Clock::now() >= end) {
      fail(ExitCode::kBusy, "the control group %s cannot be removed%s", group.c_str(),
           left.empty() ? "" : textf(": process %d is in it", left.front()).c_str());
    }
    for (const pid_t pid : left) {
      if (kills) kill(pid, SIGKILL);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void clearGroups(unsigned id) {
  const GroupPlaces places =
      groupPlaces(readCgroupLayout(), readFile("/proc/1/cgroup").value_or(""), id);
  for (const std::string& group : places.monitor) clearGroup(group, false, kSeconds);
  for (const std::string& group : places.limits) clearGroup(group, true, kSeconds);
}

}  // namespace node
