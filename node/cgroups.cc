#include "node/cgroups.h"

#include <algorithm>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"
#include "node/host.h"

namespace node {

CgroupLayout layoutOf(const std::vector<MountInfo>& mounts) {
  CgroupLayout layout;
  for (const MountInfo& mount : mounts) {
    if (mount.type == "cgroup2" && layout.v2Mount.empty()) layout.v2Mount = mount.point;
    if (mount.type != "cgroup") continue;
    // The options of the hierarchy are its controllers, among others.
    std::string options = mount.options;
    std::replace(options.begin(), options.end(), ',', ' ');
    for (const std::string_view option : splitWords(options))
      layout.v1.emplace(option, mount.point);
  }
  return layout;
}

std::vector<CgroupLine> parseCgroupLines(std::string_view text) {
  std::vector<CgroupLine> parsed;
  for (const std::string_view line : splitLines(text)) {
    const size_t first = line.find(':');
    const size_t second = first == line.npos ? line.npos : line.find(':', first + 1);
    if (second == line.npos) continue;
    parsed.push_back({std::string(line.substr(first + 1, second - first - 1)),
                      std::string(line.substr(second + 1))});
  }
  return parsed;
}

std::string limitGroupName(unsigned id) { return textf("lxc.payload.qx-%u", id); }

std::string monitorGroupName(unsigned id) { return textf("lxc.monitor.qx-%u", id); }

std::optional<std::string> limitGroupOf(std::string_view cgroups, std::string_view controller,
                                        unsigned id) {
  const std::string name = "/" + limitGroupName(id);
  for (const CgroupLine& line : parseCgroupLines(cgroups)) {
    const std::string names = "," + line.controllers + ",";
    if (names.find("," + std::string(controller) + ",") == names.npos) continue;
    const size_t at = (line.path + "/").find(name + "/");
    if (at != std::string::npos) return line.path.substr(0, at + name.size());
  }
  return std::nullopt;
}

std::optional<std::string> limitFile(const CgroupLayout& layout, unsigned id, pid_t init,
                                     const std::string& name) {
  const std::string controller = name.substr(0, name.find('.'));
  const auto first = layout.v1.find(controller);
  const bool isFirst = first != layout.v1.end();
  const std::optional<std::string> groups = readFile(textf("/proc/%d/cgroup", init));
  if (!groups) return std::nullopt;
  const std::optional<std::string> group = limitGroupOf(*groups, isFirst ? controller : "", id);
  if (!group) return std::nullopt;
  return (isFirst ? first->second : layout.v2Mount) + *group + "/" + name;
}

CgroupLayout readCgroupLayout() {
  CgroupLayout layout = layoutOf(currentMounts());
  if (layout.v2Mount.empty()) return layout;
  const std::string controllers = readFile(layout.v2Mount + "/cgroup.controllers").value_or("");
  for (const std::string_view name : splitWords(controllers)) layout.v2.emplace(name);
  return layout;
}

}  // namespace node
