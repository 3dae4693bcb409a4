#ifndef QX_SHARE_ENGINE_FRAME_H
#define QX_SHARE_ENGINE_FRAME_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

#include "host/fd.h"
#include "share/engine/stream.h"
#include "share/engine/wire.h"

namespace engine {

// A frame is eight bytes, least significant first: the payload's length (32
// bits), its kind (8), the lane that it belongs to (8) and flags (16); then the
// payload. docs/engine-protocol.md says what each kind holds.

enum class Kind : std::uint8_t {
  kHello = 1,     ///< both ends, first
  kRecords = 2,   ///< sender: records of one lane
  kBarrier = 3,   ///< sender: answer when all lanes have done what came before
  kReached = 4,   ///< receiver: the answer
  kWant = 5,      ///< receiver: send these files of one directory
  kMessage = 6,   ///< sender: a line of text for people
  kKnown = 7,     ///< sender: how much there is to send, as far as it knows
  kEnd = 8,       ///< sender: everything was sent
  kSummary = 9,   ///< receiver: everything was done
  kChanges = 14,  ///< sender: how it has found out what had changed
  // Before the greeting, where both ends are for it (share/engine/direct.h):
  kAddress = 10,  ///< sender: where it sees the receiver
  kMeeting = 11,  ///< receiver: where it waits for the sender
  kMet = 12,      ///< sender: whether it got there
  kAgreed = 13    ///< receiver: whether to go on there
};

inline constexpr size_t kFrameHeader = 8;         ///< bytes
inline constexpr size_t kLargestFrame = 1 << 20;  ///< bytes of payload
inline constexpr size_t kUsualFrame = 256 << 10;  ///< bytes; when records are sent off
inline constexpr std::uint16_t kCompressed = 1;   ///< flag: Records, as a zstd frame
inline constexpr unsigned kMostLanes = 16;

struct FrameHeader {
  std::uint32_t length = 0;
  Kind kind = Kind::kHello;
  std::uint8_t lane = 0;
  std::uint16_t flags = 0;
};

/// The header in eight bytes. Throws ProtocolError for a length, kind, lane or
/// flag that there is not.
FrameHeader decodeHeader(std::string_view eightBytes);

/// Writes whole frames to a stream; any thread may.
class FrameWriter {
 public:
  /// The stream is not owned.
  explicit FrameWriter(Stream& stream) : stream_(stream) {}

  /// No more than so many bytes a second from now on; 0 is as many as there is room
  /// for. To be called before the first thread writes.
  void limit(std::uint64_t bytesPerSecond);

  /// The payload stands in the buffer behind kFrameHeader bytes of room, which
  /// are filled here. Throws Failure (status 12) when the channel takes no more.
  void write(Kind kind, std::uint8_t lane, std::uint16_t flags, Buffer& frame);

  /// Nanoseconds so far and in all threads that the channel, not this end, was
  /// waited for.
  std::uint64_t blocked() const;
  std::uint64_t written() const;  ///< bytes

 private:
  std::chrono::nanoseconds keepToLimit();

  Stream& stream_;
  mutable std::mutex mutex_;
  std::uint64_t blocked_ = 0;
  std::uint64_t written_ = 0;
  std::uint64_t limit_ = 0;        ///< bytes a second
  std::uint64_t limitedFrom_ = 0;  ///< of written_, at began_
  std::chrono::steady_clock::time_point began_;
};

/// Reads whole frames from a stream; one thread.
class FrameReader {
 public:
  /// The stream is not owned.
  explicit FrameReader(Stream& stream);

  /// Makes read throw Interrupted, also one that waits for the other end just now.
  /// Any thread may call it.
  void interrupt();

  /// The next frame, its payload in the buffer; nothing at the end of the
  /// stream. Throws ProtocolError, also for a stream that ends within a frame,
  /// and Failure (status 12) when the channel cannot be read.
  std::optional<FrameHeader> read(Buffer& payload);

 private:
  bool fill(char* to, size_t count, bool mayEnd) const;

  Stream& stream_;
  host::Fd interrupted_;  ///< readable when it is
};

/// An empty frame to put a payload into.
Buffer emptyFrame(size_t capacity = 256);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_FRAME_H
