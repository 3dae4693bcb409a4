// Starting again what a migration that failed had stopped.
#ifndef QX_AGENT_SERVICES_H
#define QX_AGENT_SERVICES_H

#include "framework/haul.h"

namespace agent {

// Runs "/etc/init.d/NAME start" for each service of the parameters, last one
// first. A script that fails is logged and reported as progress; the others are
// started all the same. Does nothing with parameters that have no services.
void startServices(const QXL::QXLHaulSerializerBaseParams* params);

}  // namespace agent

#endif
