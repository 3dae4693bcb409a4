// What a plan says of the server's disk quotas.
#ifndef QX_AGENT_PLAN_QUOTA_CHECKS_H
#define QX_AGENT_PLAN_QUOTA_CHECKS_H

#include <string>
#include <utility>
#include <vector>

#include "agent/plan/node_facts.h"
#include "agent/plan/plan.h"
#include "agent/plan/survey_facts.h"

namespace agent {

/// The quotas that travel, those of the root file system; null when it has none.
const SurveyedQuotas* travellingQuotas(const Survey& survey);

/// What travels, as pairs of a label and a text; empty when nothing does.
std::vector<std::pair<std::string, std::string>> quotaRows(const Survey& survey);

/// What does not arrive as it is on the server.
std::vector<Finding> quotaFindings(const Survey& survey, const NodeFacts& node);

}  // namespace agent

#endif
