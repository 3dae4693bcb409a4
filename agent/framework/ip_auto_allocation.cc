// Addresses from the host's pool: IP_POOL="FIRST-LAST[/PREFIX] ..." of the host
// settings, IPv4.

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <sstream>

#include "agent/system/last_error.h"
#include "framework/env_manager.h"
#include "host/paths.h"
#include "host/settings.h"
#include "host/used_addresses.h"

namespace {

bool toNumber(const std::string& text, uint32_t& number) {
  in_addr address;
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
  number = ntohl(address.s_addr);
  return true;
}

std::string toText(uint32_t number) {
  in_addr address;
  address.s_addr = htonl(number);
  char buffer[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, buffer, sizeof buffer);
}

struct Range {
  uint32_t first = 0;
  uint32_t last = 0;
  std::string prefix;  // with its "/", or empty
};

bool parseRange(const std::string& text, Range& range) {
  const size_t slash = text.find('/');
  if (slash != std::string::npos) range.prefix = text.substr(slash);
  const std::string ends = text.substr(0, slash);
  const size_t dash = ends.find('-');
  return toNumber(ends.substr(0, dash), range.first) &&
         toNumber(dash == std::string::npos ? ends : ends.substr(dash + 1), range.last) &&
         range.first <= range.last;
}

}  // namespace

namespace QXA::IPAutoAllocation {

Builder::Builder(const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>&) {}

int Builder::allocate(const QXANetVEth& interface, QXL::QXLIPAddress& address) {
  std::string pool;
  host::UsedAddresses used;
  if (agent::attempt([&]() {
        pool = host::settingOf(host::hostSettings(), "IP_POOL");
        used = host::usedAddresses(0);
      }) != 0) {
    return -1;
  }
  if (pool.empty()) {
    return agent::fail("no address for " + interface.name + ": IP_POOL is not set in " +
                       host::kHostConfig);
  }
  // An address that is not known to be free may be another container's.
  if (!used.problems.empty()) {
    return agent::fail("no address for " + interface.name +
                       ": it is not known which ones are free: " + used.problems[0]);
  }
  for (const std::string& given : given_) used.holders[given] = interface.name;
  std::istringstream stream(pool);
  for (std::string text; stream >> text;) {
    Range range;
    if (!parseRange(text, range)) {
      return agent::fail("IP_POOL has no address range in '" + text + "'");
    }
    for (uint64_t number = range.first; number <= range.last; ++number) {
      const std::string candidate = toText(static_cast<uint32_t>(number));
      if (used.holders.contains(candidate)) continue;
      given_.push_back(candidate);
      address.text = candidate + range.prefix;
      return 0;
    }
  }
  return agent::fail("no address for " + interface.name + ": IP_POOL '" + pool + "' has none left");
}

}  // namespace QXA::IPAutoAllocation
