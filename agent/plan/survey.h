// What a plan needs to know of a server beside its measurement.
#ifndef QX_AGENT_PLAN_SURVEY_H
#define QX_AGENT_PLAN_SURVEY_H

#include "agent/plan/survey_facts.h"

namespace agent {

/// Looks at this machine and changes nothing. Takes some seconds at most, however
/// many files there are. Stops early when the current request is cancelled.
Survey surveyHere(const SurveyRequest& request);

}  // namespace agent

#endif
