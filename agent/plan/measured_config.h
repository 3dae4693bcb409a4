// What may be taken over from a server's measurement.
#ifndef QX_AGENT_MEASURED_CONFIG_H
#define QX_AGENT_MEASURED_CONFIG_H

#include <string>
#include <vector>

#include "framework/env_config.h"

namespace agent {

/// Takes what another machine claims to have measured for what it is, a claim.
///
/// Only what can be measured may be in `config`: resource records, host name,
/// distribution, addresses, name servers, search domains. Where the container lies,
/// how it is stored, which bridge it joins and what it may do is decided on this node
/// alone: a measurement that names any of that lies, and is refused with a
/// std::runtime_error that names the variable.
///
/// Each value is looked at as if a stranger had typed it. What no container can have
/// (a name server that is not an address, say) is taken out of `config`; the texts
/// returned, one for each, say what and why, for a person to read.
std::vector<std::string> keepMeasurable(QXA::QXAEnvConfig& config);

}  // namespace agent

#endif
