#include "share/engine/hello.h"

#include "share/engine/frame.h"
#include "share/engine/payload.h"

namespace engine {

namespace {

void takeVersion(Decoder& from) {
  const std::uint64_t version = from.number();
  if (version != kProtocolVersion)
    throw ProtocolError("the other end speaks version " + std::to_string(version) +
                        " of the protocol, not " + std::to_string(kProtocolVersion));
}

std::string takeIdentity(Decoder& from) {
  const std::string_view identity = from.text(kLongestIdentity, "manifest's identity");
  constexpr std::string_view kAllowed = "0123456789abcdef-";
  if (identity.find_first_not_of(kAllowed) != std::string_view::npos)
    throw ProtocolError("a manifest's identity has invalid characters");
  return std::string(identity);
}

}  // namespace

void putHello(Buffer& to, const ReceiverHello& hello) {
  putNumber(to, kProtocolVersion);
  putNumber(to, hello.empty ? 1 : 0);
  putText(to, hello.identity);
  putNumber(to, hello.patterns.size());
  for (const std::string& pattern : hello.patterns) putText(to, pattern);
  putNumber(to, hello.pace.kibPerSecond);
  putNumber(to, hello.pace.yields ? 1 : 0);
}

void putHello(Buffer& to, const SenderHello& hello) {
  putNumber(to, kProtocolVersion);
  putNumber(to, static_cast<unsigned>(hello.way));
  putNumber(to, hello.lanes);
}

ReceiverHello takeReceiverHello(std::string_view payload) {
  Decoder from(payload);
  takeVersion(from);
  ReceiverHello hello;
  hello.empty = from.number(1, "flag") == 1;
  hello.identity = takeIdentity(from);
  const std::uint64_t count = from.number(kMostPatterns, "number of patterns");
  for (std::uint64_t i = 0; i < count; ++i)
    hello.patterns.emplace_back(from.text(kLongestPattern, "pattern"));
  hello.pace.kibPerSecond = from.number(host::kMostKibPerSecond, "limit");
  hello.pace.yields = from.number(1, "flag") == 1;
  expectEnd(from);
  return hello;
}

SenderHello takeSenderHello(std::string_view payload) {
  Decoder from(payload);
  takeVersion(from);
  SenderHello hello;
  hello.way = static_cast<Way>(from.number(static_cast<unsigned>(Way::kDifferences), "way"));
  hello.lanes = static_cast<unsigned>(from.number(kMostLanes, "number of lanes"));
  if (hello.lanes == 0) throw ProtocolError("a greeting asks for no lanes");
  expectEnd(from);
  return hello;
}

void putFarewell(Buffer& to, const Farewell& farewell) {
  putNumber(to, farewell.problems);
  putText(to, farewell.identity);
}

Farewell takeFarewell(std::string_view payload) {
  Decoder from(payload);
  Farewell farewell;
  farewell.problems = from.number();
  farewell.identity = takeIdentity(from);
  expectEnd(from);
  return farewell;
}

}  // namespace engine
