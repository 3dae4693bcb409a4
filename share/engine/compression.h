#ifndef QX_SHARE_ENGINE_COMPRESSION_H
#define QX_SHARE_ENGINE_COMPRESSION_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

#include "share/engine/frame.h"
#include "share/engine/idle_share.h"

struct ZSTD_CCtx_s;
struct ZSTD_DCtx_s;

namespace engine {

/// Decides how much to compress: as much as the processors have to spare while the
/// channel is waited for, and nothing when it is not. Any thread may use it.
class CompressionControl {
 public:
  static constexpr int kOff = -100;  ///< a level that there is not
  static constexpr int kLowest = -5;
  static constexpr int kHighest = 6;

  explicit CompressionControl(bool allowed) : allowed_(allowed) {}

  int level() const { return level_; }

  /// To be called after each frame. Looks at the writer now and then.
  void sent(const FrameWriter& writer);

  /// What there was between two looks.
  struct Look {
    double waiting = 0;         ///< share of the time (0 to 1) spent waiting for the channel
    double bytesPerSecond = 0;  ///< that the channel took
    double idle = 1;            ///< share of the processors that nobody used
  };

  /// The pure half: the next level.
  static int next(int level, const Look& look);

 private:
  using Clock = std::chrono::steady_clock;

  const bool allowed_;
  std::atomic<int> level_{kOff};
  std::mutex mutex_;
  Clock::time_point looked_ = Clock::now();
  std::uint64_t blockedThen_ = 0;
  std::uint64_t writtenThen_ = 0;
  IdleShare idle_;
};

/// Compresses frames. One thread uses it.
class Compressor {
 public:
  Compressor();
  ~Compressor();
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;

  /// Compresses the payload of a frame. False when it hardly shrinks; then it is
  /// not tried again for a while.
  bool compress(int level, const Buffer& frame);
  /// What compress made of it, with room for the header.
  Buffer& frame() { return compressed_; }

 private:
  ZSTD_CCtx_s* context_;
  Buffer compressed_;
  int pause_ = 0;  ///< frames that are not tried
  int nextPause_ = 1;
};

/// Undoes it. One thread uses it.
class Decompressor {
 public:
  Decompressor();
  ~Decompressor();
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;

  /// The payload as it was. Throws ProtocolError for what is no zstd frame of a
  /// stated size within the limit.
  void decompress(const Buffer& payload, Buffer& plain);

 private:
  ZSTD_DCtx_s* context_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_COMPRESSION_H
