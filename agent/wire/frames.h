// Frames: what travels on a connection. Four bytes of length, most significant
// first, then that many bytes of JSON (see docs/wire-format.md).
#ifndef QX_AGENT_WIRE_FRAMES_H
#define QX_AGENT_WIRE_FRAMES_H

#include <atomic>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/fd.h"

namespace agent {

/// No frame is longer. A quota dump of 50,000 users has 5 MB.
inline constexpr size_t kMaxFrameBytes = 32u << 20;
/// Nor is one that answers to nothing of which more is known: what another machine can
/// make this process keep is bounded by it.
inline constexpr size_t kUsualFrameBytes = 1u << 20;

/// Where frames are sent. Threads may share one.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  /// Sends a frame, and descriptors with it where the connection can carry them.
  /// False when it could not be sent; the connection is lost then.
  virtual bool send(const nlohmann::json& frame, const std::vector<int>& fds = {}) = 0;
  /// Frames that come back may have that many bytes from now on.
  virtual void expectFramesOf(size_t) {}
};

/// Throws std::length_error for a frame that is too long.
std::string encodeFrame(const nlohmann::json& frame);

/// Throws std::runtime_error for text that is not an acceptable frame.
nlohmann::json parseFrame(std::string_view text);

/// Cuts a byte stream into frames.
class FrameDecoder {
 public:
  void feed(std::string_view bytes) { buffer_.append(bytes); }
  /// Frames of up to that many bytes are accepted from now on; at first those of
  /// kUsualFrameBytes. Any thread.
  void accept(size_t bytes) { most_ = bytes; }
  /// The next whole frame; nothing when more bytes are needed. Throws
  /// std::runtime_error as soon as the stream cannot be frames.
  std::optional<nlohmann::json> next();

 private:
  std::string buffer_;
  size_t at_ = 0;
  std::atomic<size_t> most_{kUsualFrameBytes};
};

/// A field of a frame, checked for its type: throws std::runtime_error.
std::string textOf(const nlohmann::json& frame, const char* name);
long long numberOf(const nlohmann::json& frame, const char* name);

}  // namespace agent

#endif
