// The configuration of LXC, derived from the container's own.
#ifndef QX_NODE_LXC_CONFIG_H
#define QX_NODE_LXC_CONFIG_H

#include <string>
#include <utility>
#include <vector>

#include "host/container.h"
#include "node/cgroups.h"
#include "node/host.h"

namespace node {

/// LXC's shared configuration: dropped capabilities, devices that may be used,
/// system calls that may not.
inline constexpr char kLxcCommonConfig[] = "/usr/share/lxc/config/common.conf";
/// What it says otherwise for containers with a user namespace.
inline constexpr char kLxcUserNamespaceConfig[] = "/usr/share/lxc/config/userns.conf";
inline constexpr char kLxcSeccomp[] = "/usr/share/lxc/config/common.seccomp";
inline constexpr char kDefaultBridge[] = "qxbr0";

/// What the configuration depends on beside the container.
struct HostFacts {
  CgroupLayout cgroups;
  bool appArmor = false;  ///< the kernel enforces AppArmor profiles
  std::string qxctl;      ///< absolute path of this program, for the hooks
  std::string device;     ///< what the container's tree is mounted from; empty if it is not
};
/// Throws Error.
HostFacts readHostFacts(const Container& container);

/// The words that stop a container of this init: a signal as LXC writes it, or
/// empty when a program inside must be asked (see stopContainer).
std::string haltSignal(const Container& container);

/// What runs in it is systemd's, with a journal.
bool hasSystemd(const Container& container);

/// Keys and values in the order in which LXC must read them. The interfaces get
/// no addresses here: the guest's own network files set them, as on the server.
/// Throws Error (kBadConfig).
using LxcItems = std::vector<std::pair<std::string, std::string>>;
LxcItems lxcItems(const Container& container, const HostFacts& facts);

/// The items as a configuration file of LXC's. Throws Error (kBadConfig), which names
/// the key, for a value that would not come out of such a file as it is.
std::string lxcConfigText(const LxcItems& items);

}  // namespace node

#endif
