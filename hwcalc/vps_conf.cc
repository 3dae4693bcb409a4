// Writing the container's configuration.
#include <unistd.h>

#include <memory>
#include <optional>
#include <set>

#include "framework/qxnet.h"
#include "hwcalc/addresses.h"
#include "hwcalc/formulas.h"
#include "hwcalc/hw_calc.h"

namespace {

// The host agent's number of the list of search domains.
constexpr int kSearchDomains = 1558;

std::set<QXL::QXLQoS> resourceSet(const QXHWCalc::PhysParams& params, hwcalc::Scales scales) {
  const std::vector<QXL::QXLQoS> records =
      hwcalc::resourceRecords(params, scales, static_cast<int>(sysconf(_SC_PAGESIZE)));
  return {records.begin(), records.end()};
}

std::optional<std::vector<QXL::QXLIPAddress>> addressList(const std::list<std::string>& texts) {
  if (texts.empty()) return std::nullopt;
  return std::vector<QXL::QXLIPAddress>(texts.begin(), texts.end());
}

struct FilterReleaser {
  void operator()(qxnet_filter_t* filter) const { qxnet_release_filter(filter); }
};
struct InfoReleaser {
  void operator()(qxnet_info_t* info) const { qxnet_release_info(info); }
};

// Adds an interface's addresses, each with its prefix: it tells the container which
// neighbours it reaches directly. One "dhcp" stands for all that came by DHCP.
void addAddresses(const qxnet_info_t& info, std::vector<QXL::QXLIPAddress>& addresses) {
  if (info.dhcp != 0) {
    const QXL::QXLIPAddress dhcp("dhcp");
    for (const QXL::QXLIPAddress& address : addresses) {
      if (address == dhcp) return;
    }
    addresses.push_back(dhcp);
    return;
  }
  for (const qxnet_address_t* address = info.addresses; address != nullptr;
       address = address->next) {
    addresses.emplace_back(std::string(address->text) + "/" + std::to_string(address->prefix));
  }
}

}  // namespace

int QXHWCalc::calcVPSConf(const PhysParams& params, QXA::QXAEnvConfig& config) {
  PhysParams copy = params;
  config.setSLMMode("all");
  config.setQoSes(resourceSet(copy, {procScale, diskScale}));
  config.setDistribution(hwcalc::splitDistribution(copy.distribution));
  config.setAddresses(addressList(copy.ip_addresses));
  std::vector<QXA::QXANetVEth> interfaces;
  getNetAdapters(copy.notes.warnings, interfaces);
  config.setNetVEths(interfaces);
  if (config.setHostname(copy.hostname) != 0) return 1;
  const std::set<std::string> domains(copy.search_domains.begin(), copy.search_domains.end());
  if (!domains.empty()) config.setStringListAttr(domains, kSearchDomains);
  if (!copy.nameservers.empty()) config.setNameservers(copy.nameservers);
  return 0;
}

int QXHWCalc::tuneVPSConf(QXA::QXAEnvConfig&) { return 0; }

// The container has one interface, "eth0". Its addresses are those of the server's
// interfaces that getIPAddresses takes over. It gets a hardware address of its own:
// with the server's it could not be started while the server still runs.
QXHWCalc::ec_t QXHWCalc::getNetAdapters(std::list<QXA::QXACalculateHWNodeWarning>&,
                                        std::vector<QXA::QXANetVEth>& interfaces) {
  interfaces.clear();
  const std::unique_ptr<qxnet_filter_t, FilterReleaser> filter(qxnet_get_simple_filter());
  if (!filter) return setError(EC_NETCONF, "Error: Could not alloc memory!");
  const std::unique_ptr<qxnet_info_t, InfoReleaser> list(qxnet_get_info(filter.get()));
  if (!list) return setError(EC_NETCONF, "Error: Could not get network configuration!");
  const bool pointToPointToo = hwcalc::runsContainers();
  QXA::QXANetVEth eth0;
  eth0.name = "eth0";
  for (const qxnet_info_t* info = list.get(); info != nullptr; info = info->next) {
    if ((info->flags & IFF_UP) == 0) continue;
    if ((info->flags & IFF_POINTOPOINT) != 0 && !pointToPointToo) continue;
    addAddresses(*info, eth0.addresses);
  }
  interfaces.push_back(eth0);
  return EC_OK;
}
