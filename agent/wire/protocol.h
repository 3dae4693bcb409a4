// The greeting of a connection.
#ifndef QX_AGENT_WIRE_PROTOCOL_H
#define QX_AGENT_WIRE_PROTOCOL_H

#include <nlohmann/json_fwd.hpp>

namespace agent {

/// Raised with every change that an older agent would misunderstand.
inline constexpr int kProtocolVersion = 1;

/// The first frame that each end sends.
nlohmann::json hello();

/// Throws std::runtime_error for a frame that is not the greeting of a peer that
/// speaks this version.
void checkHello(const nlohmann::json& frame);

}  // namespace agent

#endif
