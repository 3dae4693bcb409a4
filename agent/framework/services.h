// Starting again what a migration that failed had stopped.
#ifndef QX_AGENT_FRAMEWORK_SERVICES_H
#define QX_AGENT_FRAMEWORK_SERVICES_H

#include "framework/haul.h"

namespace agent {

/// Writes down, before they are stopped, which services somebody must start again, also
/// after the agent was killed: in "stopped-services" in the directory that QXA_TMPDIR
/// names, the id of this boot and then their names, one a line, as share/guard.sh reads it.
/// Does nothing where QXA_TMPDIR is not set, nor with parameters that have no services.
/// Returns 0, or -1 with the text in QXL::getErrorMessage(): nothing is to be stopped then.
int rememberStopped(const QXL::QXLHaulSerializerBaseParams* params);

/// Removes what rememberStopped has written.
void forgetStopped();

/// Gives the scripts that the current request runs a minute when it is cancelled: a service
/// whose script is ended half-way may go on stopping, ignore that it is started meanwhile,
/// and be down after that.
void letStopScriptsEnd();

/// Runs "/etc/init.d/NAME start" for each service of the parameters, last one
/// first, and once more some seconds later where the script says that the service is down.
/// A script that fails is logged and reported as progress; the others are
/// started all the same, also when the current request is cancelled. Does nothing with
/// parameters that have no services.
void startServices(const QXL::QXLHaulSerializerBaseParams* params);

}  // namespace agent

#endif
