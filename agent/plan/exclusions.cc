#include "agent/plan/exclusions.h"

#include "agent/framework/always_excluded.h"
#include "agent/plan/survey_mounts.h"

namespace agent {

namespace {

std::vector<std::string> pathsOf(const std::vector<PlannedExclude>& excludes) {
  std::vector<std::string> paths;
  paths.reserve(excludes.size());
  for (const PlannedExclude& exclude : excludes) paths.push_back(exclude.path);
  return paths;
}

std::string reasonFor(const MeasuredExclude& exclude, const Survey& survey) {
  std::string path = exclude.path;
  if (path.size() > 2 && path.compare(path.size() - 2, 2, "/*") == 0) path.resize(path.size() - 2);
  for (const SurveyedFileSystem& mount : survey.fileSystems) {
    if (mount.mountPoint != path) continue;
    if (!mount.reason.empty()) return mount.reason;
    return (mount.remote ? "on another machine: " : "not a disk of the server: ") + mount.type +
           " from " + mount.device;
  }
  for (const AlwaysExcluded& one : kAlwaysExcluded) {
    if (exclude.path == one.pattern) return one.reason;
  }
  return exclude.decided ? "mounted on demand, removable, or a second view of other files"
                         : "made by the kernel or kept in memory";
}

}  // namespace

std::vector<PlannedExclude> plannedExcludes(const PlanFacts& facts) {
  std::vector<PlannedExclude> list;
  const auto add = [&](const std::string& path, const std::string& reason) {
    for (const PlannedExclude& known : list) {
      if (known.path == path) return;
    }
    list.push_back({path, reason});
  };
  for (const std::string& path : facts.givenExcludes) add(path, "asked for");
  for (const MeasuredExclude& exclude : facts.measurement.excludes) {
    add(exclude.path, reasonFor(exclude, facts.survey));
  }
  // The calculator knows the table of mounts only by what it says: a mount of a
  // user's, another machine's through a program, or a bind mount that no longer tells.
  const std::vector<std::string> known = pathsOf(list);
  for (const SurveyedFileSystem& mount : facts.survey.fileSystems) {
    if (mount.copied || !mount.mounted || (!mount.remote && mount.reason.empty())) continue;
    if (isLeftOut(mount.mountPoint, known)) continue;
    const std::string pattern = mount.mountPoint + "/*";
    add(pattern, reasonFor({pattern, true}, facts.survey));
  }
  for (const SwapFile& swap : facts.survey.swapFiles) add(swap.path, "swap file in use");
  for (const AlwaysExcluded& one : kAlwaysExcluded) add(one.pattern, one.reason);
  return list;
}

std::vector<std::string> exclusionPatterns(const PlanFacts& facts) {
  return pathsOf(plannedExcludes(facts));
}

}  // namespace agent
