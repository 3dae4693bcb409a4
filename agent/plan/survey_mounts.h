// The part of a survey that is about file systems and their files.
#ifndef QX_AGENT_PLAN_SURVEY_MOUNTS_H
#define QX_AGENT_PLAN_SURVEY_MOUNTS_H

#include <string>
#include <vector>

#include "agent/plan/survey_facts.h"

namespace agent {

/// Whether patterns leave out everything below a mount point, or below a place above.
bool isLeftOut(const std::string& mountPoint, const std::vector<std::string>& excludes);

/// Whether files of that type are on another machine.
bool isRemoteType(const std::string& type);

/// Fills in what is mounted, what /etc/fstab names besides, what of it will be copied, and
/// what is noteworthy of its files.
void surveyFileSystems(const SurveyRequest& request, Survey& survey);

}  // namespace agent

#endif
