#include "migrate/excludes.h"

#include <set>

namespace P2V {

void completeExcludes(std::vector<std::string>& list) {
  list.insert(list.end(), {"/proc/*", "/sys/*", "/var/log/lastlog", "/var/qxagent.tmp"});
  const std::set<std::string> ordered(list.begin(), list.end());
  list.assign(ordered.begin(), ordered.end());
}

}  // namespace P2V
