#include "agent/page/outage.h"

#include <algorithm>
#include <cmath>

#include "agent/plan/amounts.h"
#include "agent/wire/steps.h"

namespace agent {

namespace {

double secondsFrom(const host::MigrationRecord& record, size_t first) {
  double seconds = 0;
  for (size_t i = first; i < record.stages.size(); ++i) seconds += record.stages[i].seconds;
  return seconds;
}

}  // namespace

std::optional<size_t> outageBegin(const host::MigrationRecord& record) {
  if (record.services.empty()) return std::nullopt;
  for (size_t i = 0; i < record.stages.size(); ++i) {
    const host::MigrationStage& stage = record.stages[i];
    if (stepOf(stage.name).stopsServices && stage.result == 0) return i;
  }
  return std::nullopt;
}

std::optional<double> outageSeconds(const host::MigrationRecord& record) {
  const std::optional<size_t> begin = outageBegin(record);
  if (!begin) return std::nullopt;
  return secondsFrom(record, *begin);
}

double tookSeconds(const host::MigrationRecord& record) { return secondsFrom(record, 0); }

// Nothing takes no time at all.
std::string timeText(double seconds) { return periodText(std::max(1LL, std::llround(seconds))); }

}  // namespace agent
