// What a migration does not copy.
#ifndef QX_AGENT_PLAN_EXCLUSIONS_H
#define QX_AGENT_PLAN_EXCLUSIONS_H

#include <string>
#include <vector>

#include "agent/plan/plan_facts.h"

namespace agent {

struct PlannedExclude {
  std::string path;
  std::string reason;
};

/// What will not be copied: what the measurement left out, swap files in use, what
/// the administrator named, and what is never copied.
std::vector<PlannedExclude> plannedExcludes(const PlanFacts& facts);

/// The patterns among them that a migration must be told.
std::vector<std::string> exclusionPatterns(const PlanFacts& facts);

}  // namespace agent

#endif
