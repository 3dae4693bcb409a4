// What a plan is made of.
#ifndef QX_AGENT_PLAN_PLAN_FACTS_H
#define QX_AGENT_PLAN_PLAN_FACTS_H

#include <string>
#include <vector>

#include "agent/plan/measurement.h"
#include "agent/plan/node_facts.h"
#include "agent/plan/survey.h"
#include "host/shell_vars.h"

namespace agent {

struct PlanFacts {
  std::string source;  ///< as the administrator calls the server
  long long ctid = 0;
  Measurement measurement;
  Survey survey;
  NodeFacts node;
  host::ShellVars config;                  ///< of the container, options included
  std::vector<std::string> givenExcludes;  ///< by the administrator
  std::vector<std::string> services;       ///< to be stopped
  std::vector<std::string> notes;          ///< what was done to the measured figures
};

}  // namespace agent

#endif
