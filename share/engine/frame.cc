#include "share/engine/frame.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "share/rsync/failure.h"

namespace engine {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

FrameHeader decodeHeader(std::string_view eightBytes) {
  Decoder decoder(eightBytes);
  FrameHeader header;
  header.length = decoder.fixed32();
  const unsigned kind = decoder.byte();
  header.lane = decoder.byte();
  const unsigned flags = decoder.byte() | static_cast<unsigned>(decoder.byte()) << 8;
  if (header.length > kLargestFrame)
    throw ProtocolError("a frame of " + std::to_string(header.length) + " bytes is too long");
  if (kind < static_cast<unsigned>(Kind::kHello) || kind > static_cast<unsigned>(Kind::kChanges))
    throw ProtocolError("unknown kind of frame: " + std::to_string(kind));
  if (header.lane >= kMostLanes)
    throw ProtocolError("there is no lane " + std::to_string(header.lane));
  header.kind = static_cast<Kind>(kind);
  header.flags = static_cast<std::uint16_t>(flags);
  if (flags > (header.kind == Kind::kRecords ? kCompressed : 0U))
    throw ProtocolError("unknown frame flags: " + std::to_string(flags));
  return header;
}

Buffer emptyFrame(size_t capacity) {
  Buffer frame(kFrameHeader + capacity);
  frame.resize(kFrameHeader);
  return frame;
}

void FrameWriter::write(Kind kind, std::uint8_t lane, std::uint16_t flags, Buffer& frame) {
  Buffer header(kFrameHeader);
  putFixed32(header, static_cast<std::uint32_t>(frame.size() - kFrameHeader));
  header.append(std::string{static_cast<char>(kind), static_cast<char>(lane),
                            static_cast<char>(flags & 0xff), static_cast<char>(flags >> 8)});
  header.view().copy(frame.data(), kFrameHeader);

  const std::scoped_lock lock(mutex_);
  written_ += frame.size();
  const std::chrono::nanoseconds waited = stream_.write(frame.view()) + keepToLimit();
  blocked_ += static_cast<std::uint64_t>(waited.count());
}

void FrameWriter::limit(std::uint64_t bytesPerSecond) {
  limit_ = bytesPerSecond;
  began_ = Clock::now();
}

// How long it waited, under the lock, as nobody else is to write meanwhile. What was not
// used of the limit before the last second is lost.
std::chrono::nanoseconds FrameWriter::keepToLimit() {
  if (limit_ == 0) return {};
  const std::chrono::duration<double> needed(static_cast<double>(written_ - limitedFrom_) /
                                             static_cast<double>(limit_));
  const Clock::time_point due = began_ + std::chrono::duration_cast<Clock::duration>(needed);
  const Clock::time_point now = Clock::now();
  if (due > now) {
    std::this_thread::sleep_until(due);
    return Clock::now() - now;
  }
  if (now - due > std::chrono::seconds(1)) {
    began_ = now;
    limitedFrom_ = written_;
  }
  return {};
}

std::uint64_t FrameWriter::blocked() const {
  const std::scoped_lock lock(mutex_);
  return blocked_;
}

std::uint64_t FrameWriter::written() const {
  const std::scoped_lock lock(mutex_);
  return written_;
}

FrameReader::FrameReader(Stream& stream)
    : stream_(stream), interrupted_(::eventfd(0, EFD_CLOEXEC)) {
  if (!interrupted_)
    throw qxrsync::systemFailure(qxrsync::kExitSystem, "cannot create an event descriptor");
}

void FrameReader::interrupt() {
  const std::uint64_t one = 1;
  if (::write(interrupted_.get(), &one, sizeof one) < 0) return;  // it is already
}

bool FrameReader::fill(char* to, size_t count, bool mayEnd) const {
  size_t have = 0;
  while (have < count) {
    const size_t got = stream_.read(to + have, count - have, interrupted_.get());
    have += got;
    if (got > 0) continue;
    if (have == 0 && mayEnd) return false;
    throw ProtocolError("the other end of the data channel closed it within a frame");
  }
  return true;
}

std::optional<FrameHeader> FrameReader::read(Buffer& payload) {
  char bytes[kFrameHeader];
  if (!fill(bytes, sizeof bytes, true)) return std::nullopt;
  const FrameHeader header = decodeHeader({bytes, sizeof bytes});
  payload.clear();
  payload.resize(header.length);
  fill(payload.data(), header.length, false);
  return header;
}

}  // namespace engine
