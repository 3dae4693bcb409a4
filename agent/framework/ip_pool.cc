// Addresses from the host's pool: IP_POOL="FIRST-LAST[/PREFIX] ..." of the host
// settings, IPv4.

#include "agent/framework/ip_pool.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <set>
#include <sstream>

#include "agent/system/file_io.h"
#include "agent/system/host_settings.h"
#include "agent/system/last_error.h"
#include "framework/env_manager.h"

namespace {

// An address without its prefix.
std::string bare(const std::string& text) { return text.substr(0, text.find('/')); }

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

namespace agent {

std::map<std::string, std::string> containerAddresses(long long exceptCtid) {
  std::map<std::string, std::string> used;
  std::error_code error;
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  for (const auto& entry : std::filesystem::directory_iterator(containerConfigDir, error)) {
    const std::string id = entry.path().stem();
    if (entry.path().extension() != ".conf" || id == std::to_string(exceptCtid)) continue;
    QXA::QXAEnvConfig config;
    if (parser.read(entry.path(), config) != 0) continue;
    const auto take = [&](const std::vector<QXL::QXLIPAddress>& addresses) {
      for (const QXL::QXLIPAddress& address : addresses) {
        if (address.text != "dhcp" && address.text != "auto")
          used[bare(address.text)] = "container " + id;
      }
    };
    std::optional<std::vector<QXL::QXLIPAddress>> addresses;
    config.getAddresses(addresses);
    if (addresses) take(*addresses);
    std::optional<std::vector<QXA::QXANetVEth>> interfaces;
    config.getNetVEths(interfaces);
    if (!interfaces) continue;
    for (const QXA::QXANetVEth& interface : *interfaces) take(interface.addresses);
  }
  return used;
}

}  // namespace agent

namespace QXA::IPAutoAllocation {

Builder::Builder(const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>&) {}

int Builder::allocate(const QXANetVEth& interface, QXL::QXLIPAddress& address) {
  agent::ShellVariables settings;
  if (agent::readHostSettings(settings) != 0) return -1;
  const std::string pool = agent::hostSetting(settings, "IP_POOL");
  if (pool.empty()) {
    return agent::fail("no address for " + interface.name + ": IP_POOL is not set in " +
                       agent::hostSettingsPath);
  }
  std::set<std::string> used;
  for (const auto& [taken, holder] : agent::containerAddresses(0)) used.insert(taken);
  for (const std::string& given : m_given) used.insert(given);
  std::istringstream stream(pool);
  for (std::string text; stream >> text;) {
    Range range;
    if (!parseRange(text, range)) {
      return agent::fail("IP_POOL has no address range in '" + text + "'");
    }
    for (uint64_t number = range.first; number <= range.last; ++number) {
      const std::string candidate = toText(static_cast<uint32_t>(number));
      if (used.count(candidate)) continue;
      m_given.push_back(candidate);
      address.text = candidate + range.prefix;
      return 0;
    }
  }
  return agent::fail("no address for " + interface.name + ": IP_POOL '" + pool + "' has none left");
}

}  // namespace QXA::IPAutoAllocation
