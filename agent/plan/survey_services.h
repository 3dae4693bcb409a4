// The part of a survey that is about services.
#ifndef QX_AGENT_PLAN_SURVEY_SERVICES_H
#define QX_AGENT_PLAN_SURVEY_SERVICES_H

#include "agent/plan/survey_facts.h"

namespace agent {

/// Fills in the scripts of /etc/init.d, those whose services run, and systemd's version.
void surveyServices(Survey& survey);

}  // namespace agent

#endif
