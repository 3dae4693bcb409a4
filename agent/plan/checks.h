// What stands in the way of a migration.
#ifndef QX_AGENT_PLAN_CHECKS_H
#define QX_AGENT_PLAN_CHECKS_H

#include "agent/plan/plan.h"
#include "agent/plan/plan_facts.h"

namespace agent {

/// Free space and inodes that a copy should leave, in percent of the copy: a server
/// goes on growing while it is copied.
inline constexpr int kSpaceMarginPercent = 10;

/// Adds to the findings of a plan that is complete but for them and the verdict.
void checkPlan(const PlanFacts& facts, Plan& plan);

}  // namespace agent

#endif
