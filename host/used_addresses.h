// Addresses that the host's containers have.
#ifndef QX_HOST_USED_ADDRESSES_H
#define QX_HOST_USED_ADDRESSES_H

#include <map>
#include <string>
#include <vector>

namespace host {

struct UsedAddresses {
  /// "container N" by address without prefix. Words such as "dhcp" are left out.
  std::map<std::string, std::string> holders;
  /// Why a container's addresses could not be found out, one text each.
  std::vector<std::string> problems;
};

/// Of all configured containers but one (0 for none). Throws Error when there is no
/// telling which containers there are.
UsedAddresses usedAddresses(unsigned exceptId);

}  // namespace host

#endif
