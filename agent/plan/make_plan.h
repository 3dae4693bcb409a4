// Making the plan of a migration. Pure: facts in, plan out.
#ifndef QX_AGENT_PLAN_MAKE_PLAN_H
#define QX_AGENT_PLAN_MAKE_PLAN_H

#include "agent/plan/plan.h"
#include "agent/plan/plan_facts.h"

namespace agent {

/// Throws host::Error when the interfaces of the container's configuration are malformed.
Plan makePlan(const PlanFacts& facts);

}  // namespace agent

#endif
