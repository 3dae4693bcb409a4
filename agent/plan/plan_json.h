// Plans and measurements for programs.
#ifndef QX_AGENT_PLAN_PLAN_JSON_H
#define QX_AGENT_PLAN_PLAN_JSON_H

#include <string>

#include "agent/plan/plan.h"
#include "agent/plan/plan_facts.h"

namespace agent {

/// {"source", "measurement", "configuration"}; the configuration by variable.
std::string measurementJson(const std::string& source, const Measurement& measurement,
                            const host::ShellVars& config);

/// What planText shows, with "verdict" one of "ready", "warnings", "blocked".
std::string planJson(const PlanFacts& facts, const Plan& plan);

}  // namespace agent

#endif
