// The container's limits as a plan shows them.
#ifndef QX_AGENT_PLAN_LIMITS_H
#define QX_AGENT_PLAN_LIMITS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/plan/measurement.h"
#include "host/migration_record.h"
#include "host/shell_vars.h"

namespace agent {

/// One resource limit and what it comes from.
struct PlannedLimit {
  std::string name;  ///< in lower case, as "numproc"
  std::string soft;  ///< empty for limits of one value
  std::string hard;
  std::string measured;  ///< with its unit, or what it is computed from; empty for fixed limits
  std::optional<uint64_t> figure;  ///< what was measured, if it was
  std::string unit;                ///< "", "pages", "bytes", "KiB"
};

/// Of the table of resources (host/resources.h) those that `config` has, in its order.
std::vector<PlannedLimit> plannedLimits(const Measurement& measurement,
                                        const host::ShellVars& config);

/// Those that are not fixed, for the journal.
std::vector<host::ResourceFigures> figuresOf(const std::vector<PlannedLimit>& limits);

}  // namespace agent

#endif
