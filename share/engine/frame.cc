#include "share/engine/frame.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "share/rsync/failure.h"

namespace engine {

namespace {

using Clock = std::chrono::steady_clock;

void waitFor(int fd, short events) {
  pollfd wanted{fd, events, 0};
  ::poll(&wanted, 1, -1);
}

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
  const Clock::time_point began = Clock::now();
  std::string_view rest = frame.view();
  written_ += rest.size();
  while (!rest.empty()) {
    const ssize_t count = ::write(fd_, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      waitFor(fd_, POLLOUT);
    } else if (errno != EINTR) {
      throw qxrsync::systemFailure(qxrsync::kExitProtocol, "cannot write to the data channel");
    }
  }
  keepToLimit();
  blocked_ += static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - began).count());
}

void FrameWriter::limit(std::uint64_t bytesPerSecond) {
  limit_ = bytesPerSecond;
  began_ = Clock::now();
}

// Under the lock, as nobody else is to write meanwhile. What was not used of the
// limit before the last second is lost.
void FrameWriter::keepToLimit() {
  if (limit_ == 0) return;
  const std::chrono::duration<double> needed(static_cast<double>(written_ - limitedFrom_) /
                                             static_cast<double>(limit_));
  const Clock::time_point due = began_ + std::chrono::duration_cast<Clock::duration>(needed);
  const Clock::time_point now = Clock::now();
  if (due > now) {
    std::this_thread::sleep_until(due);
  } else if (now - due > std::chrono::seconds(1)) {
    began_ = now;
    limitedFrom_ = written_;
  }
}

std::uint64_t FrameWriter::blocked() const {
  const std::scoped_lock lock(mutex_);
  return blocked_;
}

std::uint64_t FrameWriter::written() const {
  const std::scoped_lock lock(mutex_);
  return written_;
}

FrameReader::FrameReader(int fd) : fd_(fd), interrupted_(::eventfd(0, EFD_CLOEXEC)) {
  if (!interrupted_)
    throw qxrsync::systemFailure(qxrsync::kExitSystem, "cannot create an event descriptor");
}

void FrameReader::interrupt() {
  const std::uint64_t one = 1;
  if (::write(interrupted_.get(), &one, sizeof one) < 0) return;  // it is already
}

void FrameReader::wait() const {
  pollfd wanted[] = {{fd_, POLLIN, 0}, {interrupted_.get(), POLLIN, 0}};
  ::poll(wanted, 2, -1);
  if (wanted[1].revents != 0) throw Interrupted{};
}

bool FrameReader::fill(char* to, size_t count, bool mayEnd) const {
  size_t have = 0;
  while (have < count) {
    wait();
    const ssize_t got = ::read(fd_, to + have, count - have);
    if (got > 0) {
      have += static_cast<size_t>(got);
    } else if (got == 0 || errno == ECONNRESET) {
      if (have == 0 && mayEnd) return false;
      throw ProtocolError("the other end of the data channel closed it within a frame");
    } else if (errno != EINTR && errno != EAGAIN) {
      throw qxrsync::systemFailure(qxrsync::kExitProtocol, "cannot read from the data channel");
    }
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
