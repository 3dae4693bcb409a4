#include "agent/programs/summary.h"

#include <algorithm>
#include <cmath>

#include "agent/plan/amounts.h"
#include "agent/wire/steps.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::textf;
using host::visibleLine;

std::string row(const char* name, const std::string& value) {
  return textf("  %-9s %s\n", name, value.c_str());
}

std::string next(const std::string& command, const char* text) {
  return textf("  %-23s %s\n", command.c_str(), text);
}

// Nothing takes no time at all.
std::string timeText(double seconds) { return periodText(std::max(1LL, std::llround(seconds))); }

}  // namespace

std::optional<double> outageSeconds(const host::MigrationRecord& record) {
  if (record.services.empty()) return std::nullopt;
  std::optional<double> seconds;
  for (const host::MigrationStage& stage : record.stages) {
    if (stepOf(stage.name).stopsServices && stage.result == 0) seconds = 0;
    if (seconds) *seconds += stage.seconds;
  }
  return seconds;
}

std::string summaryText(const host::MigrationRecord& record) {
  const std::string id = std::to_string(record.ctid);
  const std::string source = visibleLine(record.source);
  const std::string services = visibleLine(host::joined(record.services));
  std::string text = "Container " + id + " is ready.\n";
  // The plan counts before the copy: afterwards it may be some more or less.
  if (record.files > 0) {
    text += row("copied", bytesText(record.bytes) + " in " + countText(record.files) +
                              " files, as the plan counted them");
  }
  double seconds = 0;
  for (const host::MigrationStage& stage : record.stages) seconds += stage.seconds;
  text += row("took", timeText(seconds));
  const std::optional<double> outage = outageSeconds(record);
  if (outage) {
    text += row("outage", timeText(*outage) + " so far; stopped on the server: " + services);
  }
  if (!record.warnings.empty()) {
    text += row("warnings", countText(static_cast<long long>(record.warnings.size())) +
                                " of the plan: 'qxmigrate show " + id + "' lists them");
  }
  text += "Next:\n";
  text += next("qxmigrate verify " + id, "compare it with the server");
  text += next("qxctl start " + id, "start it; before that, shut the server down if");
  text += next("", "the container has its address");
  text += next("qxctl exec " + id + " bash", "look around in it");
  text += "To go back to " + source + ": qxctl stop " + id;
  text += outage ? ", and start there " + services + "\n" : "\n";
  return text;
}

}  // namespace agent
