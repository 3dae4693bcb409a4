// The container's limits as a plan shows them.
#ifndef QX_AGENT_PLAN_LIMITS_H
#define QX_AGENT_PLAN_LIMITS_H

#include <string>
#include <vector>

#include "agent/plan/measurement.h"
#include "host/shell_vars.h"

namespace agent {

/// One resource limit and what it comes from.
struct PlannedLimit {
  std::string name;  ///< in lower case, as "numproc"
  std::string soft;  ///< empty for limits of one value
  std::string hard;
  std::string measured;  ///< with its unit; empty for fixed limits
  std::string unit;      ///< "", "pages", "bytes", "KiB"
};

/// Of the table of resources (host/resources.h) those that `config` has, in its order.
std::vector<PlannedLimit> plannedLimits(const Measurement& measurement,
                                        const host::ShellVars& config);

}  // namespace agent

#endif
