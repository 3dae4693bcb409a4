#include "agent/wire/protocol.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/wire/frames.h"
#include "framework/access.h"

namespace agent {

nlohmann::json hello() {
  return {{"type", "hello"},
          {"version", protocolVersion},
          {"eid", QXL::QXLConfiguration::getLocalEID().text()}};
}

void checkHello(const nlohmann::json& frame) {
  if (textOf(frame, "type") != "hello") throw std::runtime_error("the peer does not greet");
  const long long version = numberOf(frame, "version");
  if (version != protocolVersion) {
    throw std::runtime_error("the peer speaks version " + std::to_string(version) +
                             " of the protocol, this agent " + std::to_string(protocolVersion));
  }
  textOf(frame, "eid");
}

}  // namespace agent
