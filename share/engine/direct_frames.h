#ifndef QX_SHARE_ENGINE_DIRECT_FRAMES_H
#define QX_SHARE_ENGINE_DIRECT_FRAMES_H

#include <cstdint>
#include <string_view>

#include "share/engine/ip_address.h"
#include "share/engine/tls_stream.h"
#include "share/engine/wire.h"

namespace engine {

// What the frames hold by which two ends get a connection of their own (direct.h). What
// takes them throws ProtocolError for anything else.

IpAddress takeAddress(std::string_view payload);

/// A port, and the key unless that is 0.
void putMeeting(Buffer& to, std::uint16_t port, const Key& key);
std::uint16_t takeMeeting(std::string_view payload, Key& key);

/// 0, or an errno value.
int takeMet(std::string_view payload);

bool takeAgreed(std::string_view payload);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_DIRECT_FRAMES_H
