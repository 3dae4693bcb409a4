// The files in which DHCP clients note what they were given.
#ifndef QX_HOST_LEASES_H
#define QX_HOST_LEASES_H

#include <string>
#include <string_view>

namespace host {

/// Whether a lease file of the ISC client, blocks of
///   lease { interface "eth0"; fixed-address 192.0.2.7; … }
/// grants this address to this interface. Expired leases count too: whether
/// the address is still there is for the caller to know.
bool dhclientLeaseGrants(std::string_view text, std::string_view interface,
                         std::string_view address);

/// Whether a lease file of systemd-networkd's or NetworkManager's own client,
/// lines NAME=value, grants this address.
bool keyValueLeaseGrants(std::string_view text, std::string_view address);

/// Whether some client on this machine notes that the interface was given this
/// address. `index` is the interface's number.
bool hasLease(const std::string& interface, int index, const std::string& address);

}  // namespace host

#endif
