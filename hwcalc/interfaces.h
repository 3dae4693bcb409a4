// The system's interfaces with their IPv4 addresses.
#ifndef QX_HWCALC_INTERFACES_H
#define QX_HWCALC_INTERFACES_H

#include <net/if.h>
#include <netinet/in.h>

#include <memory>
#include <optional>

namespace hwcalc {

/// One address of one interface, in a chain.
struct ifi_info {
  char name[IFNAMSIZ] = {};  ///< terminated
  unsigned flags = 0;        ///< IFF_UP, IFF_LOOPBACK, IFF_POINTOPOINT, IFF_BROADCAST
  std::optional<sockaddr_in> address;
  std::optional<sockaddr_in> broadcast;    ///< of interfaces that have one
  std::optional<sockaddr_in> destination;  ///< of point-to-point interfaces
  ifi_info* next = nullptr;
};

/// Reads the list from the system, in its order. Returns null when there is none or
/// when anything could not be read. Release with free_ifi_info.
ifi_info* get_if_inet_info();
void free_ifi_info(ifi_info* list);

struct IfiInfoReleaser {
  void operator()(ifi_info* list) const { free_ifi_info(list); }
};
using IfiInfoList = std::unique_ptr<ifi_info, IfiInfoReleaser>;

}  // namespace hwcalc

#endif
