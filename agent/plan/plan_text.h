// Plans and measurements for people: pages of at most 80 columns.
#ifndef QX_AGENT_PLAN_PLAN_TEXT_H
#define QX_AGENT_PLAN_PLAN_TEXT_H

#include <string>
#include <vector>

#include "agent/plan/plan.h"
#include "agent/plan/plan_facts.h"

namespace agent {

/// Lines of at most `width` columns, all but the first indented; long words are cut, and
/// nothing in them can drive a terminal.
std::string wrapped(const std::string& first, const std::string& indent, const std::string& text,
                    size_t width = 80);

/// The table of limits, each with what it comes from; fixed ones only on request.
std::string limitsText(const std::vector<PlannedLimit>& limits, bool fixedToo);

std::string measurementText(const std::string& source, const Measurement& measurement,
                            const host::ShellVars& config);
/// Findings, one or more lines each, and the verdict.
std::string verdictText(const Plan& plan);
std::string planText(const PlanFacts& facts, const Plan& plan);

}  // namespace agent

#endif
