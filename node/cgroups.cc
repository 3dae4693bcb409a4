#include "node/cgroups.h"

#include <algorithm>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"
#include "node/host.h"

namespace node {

CgroupLayout parseCgroupMounts(std::string_view mountinfo) {
  CgroupLayout layout;
  for (const std::string_view line : splitLines(mountinfo)) {
    const std::vector<std::string_view> words = splitWords(line);
    const auto dash = std::find(words.begin(), words.end(), "-");
    if (words.end() - dash < 4 || dash - words.begin() < 6) continue;
    if (dash[1] == "cgroup2" && layout.v2Mount.empty()) layout.v2Mount = words[4];
    if (dash[1] != "cgroup") continue;
    // The options of the hierarchy are its controllers, among others.
    std::string options(dash[3]);
    std::replace(options.begin(), options.end(), ',', ' ');
    for (const std::string_view option : splitWords(options)) layout.v1.emplace(option);
  }
  return layout;
}

CgroupLayout readCgroupLayout() {
  const std::optional<std::string> mountinfo = readFile("/proc/self/mountinfo");
  if (!mountinfo) failErrno("cannot read /proc/self/mountinfo");
  CgroupLayout layout = parseCgroupMounts(*mountinfo);
  if (layout.v2Mount.empty()) return layout;
  const std::string controllers = readFile(layout.v2Mount + "/cgroup.controllers").value_or("");
  for (const std::string_view name : splitWords(controllers)) layout.v2.emplace(name);
  return layout;
}

}  // namespace node
