#include "share/engine/compression.h"

#include <zstd.h>

#include <algorithm>
#include <new>
#include <string>

namespace engine {

namespace {

constexpr std::chrono::milliseconds kLookInterval{100};
// Above this, bytes a second, compressing costs more than it saves.
constexpr double kFastLink = 300e6;
constexpr double kMuchWaiting = 0.7;    // share of the time
constexpr double kLittleWaiting = 0.3;  //
// Of the processors. With less to spare, the channel is slow because what carries it on, ssh
// or the other end, has no processor: compressing would take more from it.
constexpr double kSomeIdle = 0.25;
constexpr double kHardlyIdle = 0.1;
constexpr int kLongestPause = 64;  // frames

}  // namespace

int CompressionControl::next(int level, const Look& look) {
  const bool waits = look.waiting > kMuchWaiting && look.idle > kSomeIdle;
  if (level == kOff) return waits && look.bytesPerSecond < kFastLink ? kLowest : kOff;
  if (waits) return std::min(level + 1, kHighest);
  const bool less = look.waiting < kLittleWaiting || look.idle < kHardlyIdle;
  return !less ? level : level > kLowest ? level - 1 : kOff;
}

void CompressionControl::sent(const FrameWriter& writer) {
  if (!allowed_) return;
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock.owns_lock()) return;
  const Clock::time_point now = Clock::now();
  if (now - looked_ < kLookInterval) return;
  const double seconds = std::chrono::duration<double>(now - looked_).count();
  const std::uint64_t blocked = writer.blocked();
  const std::uint64_t written = writer.written();
  level_ = next(level_, {static_cast<double>(blocked - blockedThen_) / 1e9 / seconds,
                         static_cast<double>(written - writtenThen_) / seconds, idle_.next()});
  looked_ = now;
  blockedThen_ = blocked;
  writtenThen_ = written;
}

Compressor::Compressor() : context_(ZSTD_createCCtx()) {
  if (context_ == nullptr) throw std::bad_alloc();
}

Compressor::~Compressor() { ZSTD_freeCCtx(context_); }

bool Compressor::compress(int level, const Buffer& frame) {
  if (pause_ > 0) {
    --pause_;
    return false;
  }
  const std::string_view payload = frame.view().substr(kFrameHeader);
  compressed_.clear();
  compressed_.resize(kFrameHeader);
  const size_t room = ZSTD_compressBound(payload.size());
  char* to = compressed_.room(room);
  const size_t size = ZSTD_compressCCtx(context_, to, room, payload.data(), payload.size(), level);
  if (ZSTD_isError(size) != 0 || size > payload.size() - payload.size() / 16) {
    nextPause_ = std::min(nextPause_ * 2, kLongestPause);
    pause_ = nextPause_;
    return false;
  }
  nextPause_ = 1;
  compressed_.grow(size);
  return true;
}

Decompressor::Decompressor() : context_(ZSTD_createDCtx()) {
  if (context_ == nullptr) throw std::bad_alloc();
}

Decompressor::~Decompressor() { ZSTD_freeDCtx(context_); }

void Decompressor::decompress(const Buffer& payload, Buffer& plain) {
  const unsigned long long size = ZSTD_getFrameContentSize(payload.data(), payload.size());
  if (size == ZSTD_CONTENTSIZE_UNKNOWN || size == ZSTD_CONTENTSIZE_ERROR || size > kLargestFrame)
    throw ProtocolError("a compressed frame does not state its length, or is too long");
  plain.clear();
  char* to = plain.room(size);
  const size_t made = ZSTD_decompressDCtx(context_, to, size, payload.data(), payload.size());
  if (ZSTD_isError(made) != 0 || made != size)
    throw ProtocolError("a compressed frame cannot be decompressed");
  plain.grow(size);
}

}  // namespace engine
