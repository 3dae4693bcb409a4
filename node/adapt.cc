#include "node/adapt.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/text.h"
#include "node/runscript.h"

namespace node {
namespace {

constexpr std::array kGuestVariables{"HOSTNAME", "IP_ADDRESS", "NETIF",
                                     "GATEWAY",  "NAMESERVER", "SEARCHDOMAIN"};

/// The value of POST_MIGRATE in section GLOBAL of a table file.
std::string scriptName(std::string_view table) {
  constexpr std::string_view kKey = "POST_MIGRATE=";
  bool inside = false;
  for (std::string_view line : splitLines(table)) {
    const std::vector<std::string_view> words = splitWords(line);
    if (words.size() != 1) continue;
    if (words[0].starts_with('[')) inside = words[0] == "[GLOBAL]";
    if (inside && words[0].starts_with(kKey)) return std::string(words[0].substr(kKey.size()));
  }
  return {};
}

}  // namespace

std::string adaptationScript(const std::string& distribution) {
  if (distribution.empty() || distribution.find('/') != distribution.npos) return {};
  const std::string directory = std::string(kConfigDir) + "/dists/";
  for (const std::string& name : {distribution, distribution.substr(0, distribution.rfind('-'))}) {
    const std::optional<std::string> table = readFile(directory + name + ".conf");
    const std::string script = table ? scriptName(*table) : std::string();
    if (!script.empty() && script.find('/') == script.npos) return directory + "scripts/" + script;
  }
  return {};
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
