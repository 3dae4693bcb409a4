// Detecting the server's distribution.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <optional>

#include "expand/caller.h"
#include "expand/error.h"
#include "expand/strings.h"
#include "hwcalc/hw_calc.h"

namespace {

// The detection script that is installed with the library. QXA_TMPDIR stands in
// front when the library's files lie elsewhere for the time of a migration.
std::string builtInScript() {
  const char* prefix = std::getenv("QXA_TMPDIR");
  return std::string(prefix != nullptr ? prefix : "") +
         "/usr/local/share/qxlinmigrate/distdetect-common.sh";
}

// What a detection script prints; nothing when it does not succeed. It runs with
// the environment of this process.
std::optional<std::string> outputOf(const std::string& script) {
  std::list<std::string> env;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    env.push_back(*entry);
  }
  Expand::CtoDynaBuf output(UINT64_MAX, true, -1);
  Expand::CtoDynaBuf errorOutput(UINT64_MAX, true, -1);
  std::vector<Expand::Connector*> connectors = {nullptr, &output, &errorOutput};
  Expand::CallerExec shell("sh", {script}, env, {});
  try {
    shell.call(connectors);
  } catch (const Expand::Error&) {
    return std::nullopt;
  }
  if (!shell.normalExit() || shell.exitCode() != 0) return std::nullopt;
  std::string text = output.output();
  Expand::collapse(text);
  return text;
}

}  // namespace

std::string QXHWCalc::getDistribution(std::list<QXA::QXACalculateHWNodeWarning>& warnings) const {
  std::list<std::string> candidates = distScripts;
  candidates.push_back(builtInScript());
  bool found = false;
  // A script that fails, or knows nothing to print, leaves it to the next one.
  for (const std::string& script : candidates) {
    if (access(script.c_str(), F_OK) != 0) continue;
    found = true;
    const std::optional<std::string> distribution = outputOf(script);
    if (distribution && !distribution->empty()) return *distribution;
  }
  if (found) {
    warnings.push_back(
        {WARN_DISTRIBUTION, "OS distribution was not detected. It must be manually set."});
  } else {
    warnings.push_back(
        {WARN_DISTRIBUTION,
         "OS distribution detection script (" +
             Expand::join(", ", candidates.begin(), candidates.end()) +
             ") was not found. The DISTRIBUTION parameter of the CT config must be set manually."});
  }
  return "";
}
