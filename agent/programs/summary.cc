#include "agent/programs/summary.h"

#include "agent/page/outage.h"
#include "agent/plan/amounts.h"
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

std::string servicesOf(const host::MigrationRecord& record) {
  return visibleLine(host::joined(record.services));
}

std::string wayBack(const host::MigrationRecord& record) {
  const std::string text =
      "To go back to " + visibleLine(record.source) + ": qxctl stop " + std::to_string(record.ctid);
  return outageSeconds(record) ? text + ", and start there " + servicesOf(record) : text;
}

}  // namespace

std::string stoppedText(const host::MigrationRecord& record) {
  if (!outageSeconds(record)) return "";
  return "these stay stopped on the server: " + servicesOf(record) + ". " + wayBack(record);
}

std::string summaryText(const host::MigrationRecord& record) {
  const std::string id = std::to_string(record.ctid);
  std::string text = "Container " + id + " is ready.\n";
  // The plan counts before the copy: afterwards it may be some more or less.
  if (record.files > 0) {
    text += row("copied", bytesText(record.bytes) + " in " + countText(record.files) +
                              " files, as the plan counted them");
  }
  text += row("took", timeText(tookSeconds(record)));
  const std::optional<double> outage = outageSeconds(record);
  if (outage) {
    text +=
        row("outage", timeText(*outage) + " so far; stopped on the server: " + servicesOf(record));
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
  text += wayBack(record) + "\n";
  return text;
}

}  // namespace agent
