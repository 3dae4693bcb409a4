#include "agent/plan/measured_config.h"

#include <algorithm>
#include <stdexcept>

#include "agent/framework/validation.h"
#include "host/address.h"

namespace agent {

namespace {

constexpr int kSearchDomains = 1558;
// Above these, nobody's server: they bound what a liar can make this node keep.
constexpr size_t kMostAddresses = 256;
constexpr size_t kMostNames = 64;

[[noreturn]] void refuse(const std::string& variable, const std::string& value) {
  throw std::runtime_error("the server's measurement sets " + variable + " to " +
                           quotedText(value) +
                           ": that is not measured but decided on this node; the server may have "
                           "been tampered with");
}

void refuseWhatIsNotMeasured(const QXA::QXAEnvConfig& config) {
  std::optional<std::string> text;
  config.getVERootVar(text);
  if (text) refuse("VE_ROOT", *text);
  config.getVEPrivateVar(text);
  if (text) refuse("VE_PRIVATE", *text);
  config.getSLMMode(text);
  // The one word that the calculator has.
  if (text && *text != "all") refuse("SLMMODE", *text);
  std::optional<QXA::QXAOsTemplate> osTemplate;
  config.getOsTemplate(osTemplate);
  if (osTemplate) refuse("OSTEMPLATE", osTemplate->name);
  if (!config.otherVariables.empty()) {
    const auto& [name, value] = *config.otherVariables.begin();
    refuse(quotedText(name), value);
  }
  std::optional<std::vector<QXA::QXANetVEth>> interfaces;
  config.getNetVEths(interfaces);
  if (!interfaces) return;
  if (interfaces->size() > 1) refuse("NETIF", "more than one interface");
  for (const QXA::QXANetVEth& interface : *interfaces) {
    if (interface.name != "eth0") refuse("NETIF", "ifname=" + interface.name);
    if (!interface.hostName.empty()) refuse("NETIF", "host_ifname=" + interface.hostName);
    if (!interface.mac.empty()) refuse("NETIF", "mac=" + interface.mac);
  }
}

// A measured address has a prefix or none, or was given out by DHCP. "auto" is not
// measured: it would take addresses from this node's pool.
bool isMeasuredAddress(const std::string& text) {
  return text == "dhcp" || host::isAddress(text) || host::isInterfaceAddress(text);
}

// Takes out of a range what `isGood` does not like, and what is too much of it.
template <class Range, class Text, class Predicate>
void keepGood(Range& range, const char* what, size_t most, Text text, Predicate isGood,
              std::vector<std::string>& dropped) {
  Range kept;
  for (const auto& item : range) {
    if (!isGood(text(item))) {
      dropped.push_back(std::string("The server's ") + what + " " + quotedText(text(item)) +
                        " is not valid and is left out.");
    } else if (kept.size() == most) {
      dropped.push_back(std::string("The server has more than ") + std::to_string(most) + " " +
                        what + " entries; the others are left out.");
      break;
    } else {
      kept.insert(kept.end(), item);
    }
  }
  range = std::move(kept);
}

}  // namespace

std::vector<std::string> keepMeasurable(QXA::QXAEnvConfig& config) {
  refuseWhatIsNotMeasured(config);
  std::vector<std::string> dropped;
  const auto itself = [](const std::string& item) { return item; };
  const auto textOf = [](const QXL::QXLIPAddress& address) { return address.text; };

  std::optional<std::vector<QXL::QXLIPAddress>> addresses;
  config.getAddresses(addresses);
  if (addresses) {
    keepGood(*addresses, "address", kMostAddresses, textOf, isMeasuredAddress, dropped);
    config.setAddresses(addresses);
  }
  std::optional<std::vector<QXA::QXANetVEth>> interfaces;
  config.getNetVEths(interfaces);
  if (interfaces) {
    for (QXA::QXANetVEth& interface : *interfaces) {
      keepGood(interface.addresses, "interface address", kMostAddresses, textOf, isMeasuredAddress,
               dropped);
    }
    config.setNetVEths(interfaces);
  }
  std::optional<std::list<std::string>> servers;
  config.getNameservers(servers);
  if (servers) {
    keepGood(*servers, "name server", kMostNames, itself, host::isAddress, dropped);
    config.setNameservers(servers);
  }
  std::set<std::string> domains;
  config.getStringListAttr(domains, kSearchDomains);
  keepGood(
      domains, "search domain", kMostNames, itself,
      [](const std::string& name) {
        // The root of all names may end one, or be one.
        QXL::QXLEnvConfig judge;
        const bool rooted = !name.empty() && name.back() == '.';
        return name == "." || judge.setHostname(name.substr(0, name.size() - rooted)) == 0;
      },
      dropped);
  config.setStringListAttr(domains, kSearchDomains);

  std::optional<QXA::QXADistribution> distribution;
  config.getDistribution(distribution);
  if (distribution) {
    const std::string name = distribution->name + distribution->version;
    const bool good = name.size() <= 64 && checkDistribution(name).empty();
    if (!good) {
      dropped.push_back("The server's distribution " + quotedText(name) +
                        " is not valid and is left out.");
      config.setDistribution(std::nullopt);
    }
  }
  return dropped;
}

}  // namespace agent
