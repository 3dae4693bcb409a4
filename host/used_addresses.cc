#include "host/used_addresses.h"

#include "host/container.h"
#include "host/error.h"
#include "host/interfaces.h"
#include "host/settings.h"
#include "host/text.h"

namespace host {
namespace {

void addAddresses(unsigned id, std::map<std::string, std::string>& holders) {
  // Not loadContainer: its places may be wrong, its addresses are its addresses.
  Container container;
  container.id = id;
  container.vars =
      readShellVars(configPath(id), hostSettings(std::to_string(id))).value_or(ShellVars());
  const auto take = [&](std::string_view address) {
    if (address == "dhcp" || address == "auto") return;
    holders[std::string(address.substr(0, address.find('/')))] = textf("container %u", id);
  };
  for (const Interface& interface : interfacesOf(container)) {
    for (const std::string& address : interface.addresses) take(address);
  }
  // Beside NETIF these are not used; whoever wrote them may think otherwise.
  const std::string others = container.var("IP_ADDRESS");
  for (const std::string_view address : splitWords(others)) take(address);
}

}  // namespace

UsedAddresses usedAddresses(unsigned exceptId) {
  UsedAddresses used;
  for (const unsigned id : configuredIds()) {
    if (id == exceptId) continue;
    try {
      addAddresses(id, used.holders);
    } catch (const Error& error) {
      used.problems.emplace_back(error.what());
    }
  }
  return used;
}

}  // namespace host
