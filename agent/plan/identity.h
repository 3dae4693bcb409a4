// Which machine a server is.
#ifndef QX_AGENT_PLAN_IDENTITY_H
#define QX_AGENT_PLAN_IDENTITY_H

#include <string>

namespace agent {

/// What a server says of itself. A claim: it serves to find out that a server is not
/// the one that it was, and gives no right to anything.
struct ClaimedIdentity {
  std::string machineId;  ///< 32 hexadecimal digits in lower case; empty: it has none
};

/// What asking for it takes: nothing.
struct IdentityRequest {};

/// Of the text of /etc/machine-id; empty when that is not one.
std::string parseMachineId(const std::string& text);

ClaimedIdentity identityHere();

}  // namespace agent

#endif
