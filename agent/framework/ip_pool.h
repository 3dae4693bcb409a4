// Addresses that the host's containers have.
#ifndef QX_AGENT_FRAMEWORK_IP_POOL_H
#define QX_AGENT_FRAMEWORK_IP_POOL_H

#include <map>
#include <string>

namespace agent {

// "container N" by address without prefix, for all registered containers but one
// (0 for none). Words such as "dhcp" are left out.
std::map<std::string, std::string> containerAddresses(long long exceptCtid);

}  // namespace agent

#endif
