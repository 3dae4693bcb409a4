// The kernel's lists of network interfaces and their addresses.
#ifndef QX_HOST_NETLINK_H
#define QX_HOST_NETLINK_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace host {

struct NetLink {
  int index = 0;
  std::string name;
  std::string mac;     ///< "aa:bb:cc:dd:ee:ff"; empty when it has none
  unsigned flags = 0;  ///< IFF_ flags
};

struct NetAddress {
  int index = 0;  ///< of its interface
  int family = 0;
  std::string text;
  unsigned prefix = 0;
  bool linkLocal = false;  ///< IPv6, of use on its own link only
  bool temporary = false;  ///< an IPv6 privacy address, which comes and goes
  bool expires = false;    ///< its lifetime is limited, as by a lease
};

/// What the messages of a dump, one after the other as the kernel sends them,
/// tell; malformed ones are passed over. An IPv4 point-to-point interface
/// shows its own address, not its peer's.
std::vector<NetLink> parseLinks(std::string_view messages);
std::vector<NetAddress> parseAddresses(std::string_view messages);

/// The lists of this process's network namespace, in the kernel's order. Throws
/// Error.
std::vector<NetLink> readLinks();
std::vector<NetAddress> readAddresses();

/// The addresses in the network namespace of another process. For root, in a program with
/// one thread. Throws Error.
std::vector<NetAddress> readAddressesOf(pid_t process);

}  // namespace host

#endif
