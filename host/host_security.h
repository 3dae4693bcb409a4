// What of a host's set-up protects it from its containers, and what is missing there.
#ifndef QX_HOST_HOST_SECURITY_H
#define QX_HOST_HOST_SECURITY_H

#include <string>
#include <vector>

#include "host/mounts.h"

namespace host {

struct HostSecurity {
  bool appArmor = false;        ///< the kernel enforces profiles of AppArmor
  bool appArmorParser = false;  ///< there is the program that loads them
  bool userNamespaces = false;  ///< the kernel gives some
  bool unified = false;         ///< there is a hierarchy of control groups of the second generation
  bool delegated = false;       ///< what is given to a namespace there is guarded (nsdelegate)
  bool lxcfs = false;           ///< lxcfs runs, which takes nsdelegate away
};

/// The fields about control groups and lxcfs.
HostSecurity securityOf(const std::vector<MountInfo>& mounts);

/// Looks at this machine. What cannot be read counts as missing.
HostSecurity readHostSecurity();

/// One line for each weakness, with what mends it. Empty for a good host.
std::vector<std::string> hostWarnings(const HostSecurity& security);

}  // namespace host

#endif
