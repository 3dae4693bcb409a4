// The network interfaces of a container, as its configuration has them.
#ifndef QX_HOST_INTERFACES_H
#define QX_HOST_INTERFACES_H

#include <string>
#include <string_view>
#include <vector>

#include "host/container.h"

namespace host {

struct Interface {
  std::string name;                    ///< inside the container
  std::string hostName;                ///< of its other end on the host
  std::string mac;                     ///< empty: the kernel chooses one at each start
  std::vector<std::string> addresses;  ///< ADDRESS, ADDRESS/PREFIX or "dhcp"
};

/// Reads a value of NETIF: interfaces separated by ";", each of fields separated by ",":
/// ifname=NAME, host_ifname=NAME, mac=MAC, any number of ip=ADDRESS, where "auto" stands
/// for an address that is still to be chosen. Throws Error (kBadConfig) that begins with
/// `variable`.
std::vector<Interface> parseNetif(std::string_view netif, const std::string& variable = "NETIF");

/// What parseNetif reads back.
std::string formatNetif(const std::vector<Interface>& interfaces);

/// What NETIF says. When it is not set, eth0 with the addresses of IP_ADDRESS; none
/// without these. An interface that names no other end gets "qxID.NUMBER". Throws Error
/// (kBadConfig).
std::vector<Interface> interfacesOf(const Container& container);

}  // namespace host

#endif
