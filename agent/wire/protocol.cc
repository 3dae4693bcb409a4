#include "agent/wire/protocol.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/wire/frames.h"
#include "framework/access.h"

namespace agent {

nlohmann::json hello() {
  return {{"type", "hello"},
          {"version", kProtocolVersion},
          {"eid", QXL::QXLConfiguration::getLocalEID().text()}};
}

void checkHello(const nlohmann::json& frame) {
  if (textOf(frame, "type") != "hello")
    throw std::runtime_error("the peer did not begin with a greeting");
  const long long version = numberOf(frame, "version");
  if (version != kProtocolVersion) {
    throw std::runtime_error("the peer speaks version " + std::to_string(version) +
                             " of the protocol, this agent " + std::to_string(kProtocolVersion));
  }
  textOf(frame, "eid");
}

}  // namespace agent
