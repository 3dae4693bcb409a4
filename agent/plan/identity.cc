#include "agent/plan/identity.h"

#include "host/file.h"

namespace agent {

std::string parseMachineId(const std::string& text) {
  constexpr size_t kDigits = 32;
  const std::string id = text.substr(0, text.find('\n'));
  const bool hexadecimal = id.find_first_not_of("0123456789abcdef") == std::string::npos;
  // Images that are copied have none yet, or zeros.
  const bool set = id.find_first_not_of('0') != std::string::npos;
  return id.size() == kDigits && hexadecimal && set ? id : "";
}

ClaimedIdentity identityHere() {
  ClaimedIdentity identity;
  for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
    if (!identity.machineId.empty()) break;
    if (const auto text = host::readFile(path)) identity.machineId = parseMachineId(*text);
  }
  return identity;
}

}  // namespace agent
