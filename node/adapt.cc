#include "node/adapt.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/distributions.h"
#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "node/runscript.h"

namespace node {
namespace {

constexpr std::array kGuestVariables{"HOSTNAME", "IP_ADDRESS", "NETIF",
                                     "GATEWAY",  "NAMESERVER", "SEARCHDOMAIN"};

}  // namespace

std::string adaptationScript(const std::string& distribution) {
  const std::string script = findDistribution(distribution).script;
  // Scripts are in one directory: no other place is handed into a container.
  const size_t slash = script.rfind('/');
  return slash != script.npos && script.substr(0, slash).ends_with("/dists/scripts") ? script : "";
}

bool isGuestVariable(const std::string& variable) {
  return std::find(kGuestVariables.begin(), kGuestVariables.end(), variable) !=
         kGuestVariables.end();
}

void markForAdaptation(const Container& container) {
  replaceFile(container.inPrivateArea(kAdaptMarker), "", 0644);
}

void adaptIfChanged(const Container& container) {
  const std::string marker = container.inPrivateArea(kAdaptMarker);
  if (!exists(marker)) return;
  const std::string distribution = container.var("DISTRIBUTION");
  const std::string script = adaptationScript(distribution);
  if (script.empty()) {
    fprintf(stderr,
            "qxctl: warning: there is no script for the distribution '%s' of container %u: its "
            "host name and network files stay as they are\n",
            distribution.c_str(), container.id);
  } else if (const int status = runScript(container, script)) {
    fail(ExitCode::kFailed, "%s ended with status %d in container %u", script.c_str(), status,
         container.id);
  }
  if (unlink(marker.c_str()) != 0) failErrno("cannot remove %s", marker.c_str());
}

}  // namespace node
