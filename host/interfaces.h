// The network interfaces of a container, as its configuration has them.
#ifndef QX_HOST_INTERFACES_H
#define QX_HOST_INTERFACES_H

#include <string>
#include <vector>

#include "host/container.h"

namespace host {

struct Interface {
  std::string name;                    ///< inside the container
  std::string hostName;                ///< of its other end on the host
  std::string mac;                     ///< empty: the kernel chooses one at each start
  std::vector<std::string> addresses;  ///< ADDRESS, ADDRESS/PREFIX or "dhcp"
};

/// What NETIF says: interfaces separated by ";", each of fields separated by
/// ",": ifname=NAME, host_ifname=NAME, mac=MAC, any number of ip=ADDRESS. When
/// it is not set, eth0 with the addresses of IP_ADDRESS; none without these.
/// An interface that names no other end gets "qxID.NUMBER". Throws Error
/// (kBadConfig).
std::vector<Interface> interfacesOf(const Container& container);

}  // namespace host

#endif
