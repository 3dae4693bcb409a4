#ifndef QX_SHARE_ENGINE_HELLO_H
#define QX_SHARE_ENGINE_HELLO_H

#include <string>
#include <vector>

#include "host/copy_pace.h"
#include "share/engine/wire.h"

namespace engine {

inline constexpr unsigned kProtocolVersion = 1;
inline constexpr size_t kLongestIdentity = 64;
inline constexpr size_t kMostPatterns = 10000;
inline constexpr size_t kLongestPattern = 4096;
/// Of all patterns together: the greeting is one frame of at most 1 MiB.
inline constexpr size_t kMostPatternBytes = 1000000;

/// What the receiver says first.
struct ReceiverHello {
  bool empty = false;    ///< there is nothing yet: send everything at once
  std::string identity;  ///< of the manifest that tells what is there; may be empty
  std::vector<std::string> patterns;
  host::CopyPace pace;  ///< at most

  bool operator==(const ReceiverHello&) const = default;
};

/// How the sender goes about it.
enum class Way : unsigned {
  kEverything = 0,  ///< all contents, unasked
  kComparing = 1,   ///< what there is; contents when they are asked for
  kDifferences = 2  ///< what is not as the manifest says
};

/// What the sender answers.
struct SenderHello {
  Way way = Way::kEverything;
  unsigned lanes = 1;

  bool operator==(const SenderHello&) const = default;
};

void putHello(Buffer& to, const ReceiverHello& hello);
void putHello(Buffer& to, const SenderHello& hello);
/// Throw ProtocolError, for another version too.
ReceiverHello takeReceiverHello(std::string_view payload);
SenderHello takeSenderHello(std::string_view payload);

/// What the sender says at the end.
struct Farewell {
  std::uint64_t problems = 0;
  std::string identity;  ///< of the manifest that tells what there is now; may be empty

  bool operator==(const Farewell&) const = default;
};
void putFarewell(Buffer& to, const Farewell& farewell);
Farewell takeFarewell(std::string_view payload);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_HELLO_H
