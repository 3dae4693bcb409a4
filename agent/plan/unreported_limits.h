// Disk limits that a server's report of its quotas leaves out.
#ifndef QX_AGENT_PLAN_UNREPORTED_LIMITS_H
#define QX_AGENT_PLAN_UNREPORTED_LIMITS_H

#include <functional>
#include <string>
#include <vector>

#include "agent/plan/quota_survey.h"

namespace agent {

/// Sets them in the container, which has those of the report already, and tells `say`. Failures
/// are told, and fail nothing: the container is complete without. The limits are claims of
/// the server: those with a number that is none of an owner or a limit are passed over, and
/// so are those beyond kMostUnreported.
void addUnreportedLimits(long long ctid, const std::vector<OwnerLimits>& unreported,
                         const std::function<void(const std::string&)>& say);

}  // namespace agent

#endif
