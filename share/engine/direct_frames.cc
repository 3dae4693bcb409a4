#include "share/engine/direct_frames.h"

#include <optional>
#include <string>

#include "share/engine/payload.h"

namespace engine {

namespace {

constexpr std::uint64_t kHighestPort = UINT16_MAX;
constexpr std::uint64_t kHighestErrno = 4095;  // of the kernel's

std::uint64_t takeOnly(std::string_view payload, std::uint64_t limit, const char* what) {
  Decoder from(payload);
  const std::uint64_t number = from.number(limit, what);
  expectEnd(from);
  return number;
}

}  // namespace

IpAddress takeAddress(std::string_view payload) {
  Decoder from(payload);
  const auto address = IpAddress::parse(std::string(from.text(kLongestAddress, "address")));
  if (!address) throw ProtocolError("the other end names an address that is none");
  expectEnd(from);
  return *address;
}

void putMeeting(Buffer& to, std::uint16_t port, const Key& key) {
  putNumber(to, port);
  if (port != 0) to.append(key.view());
}

std::uint16_t takeMeeting(std::string_view payload, Key& key) {
  Decoder from(payload);
  const auto port = static_cast<std::uint16_t>(from.number(kHighestPort, "port"));
  if (port != 0) key.take(from.bytes(Key::kSize, "key"));
  expectEnd(from);
  return port;
}

int takeMet(std::string_view payload) {
  return static_cast<int>(takeOnly(payload, kHighestErrno, "reason"));
}

bool takeAgreed(std::string_view payload) { return takeOnly(payload, 1, "answer") == 1; }

}  // namespace engine
