// Starting again what a migration that failed had stopped.
#ifndef QX_AGENT_FRAMEWORK_SERVICES_H
#define QX_AGENT_FRAMEWORK_SERVICES_H

#include "framework/haul.h"

namespace agent {

/// Where the names of services that are being stopped stand, one a line after the id of
/// this boot, as long as somebody must start them again: "stopped-services" in the
/// directory that QXA_TMPDIR names, as share/guard.sh reads it, so that they can be
/// started also after the agent was killed.
/// Nothing is written where QXA_TMPDIR is not set.
void rememberStopped(const QXL::QXLHaulSerializerBaseParams* params);
void forgetStopped();

/// Runs "/etc/init.d/NAME start" for each service of the parameters, last one
/// first. A script that fails is logged and reported as progress; the others are
/// started all the same. Does nothing with parameters that have no services.
void startServices(const QXL::QXLHaulSerializerBaseParams* params);

}  // namespace agent

#endif
