// Base64 (RFC 4648, section 4), for strings of any bytes in JSON.
#ifndef QX_AGENT_WIRE_BASE64_H
#define QX_AGENT_WIRE_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace agent {

std::string encodeBase64(std::string_view bytes);

/// Nothing for text that is not base64 with its padding.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace agent

#endif
