#include "agent/verify/list_reader.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "host/visible.h"
#include "share/engine/wire.h"

namespace agent {

namespace {

constexpr size_t kRead = 256 << 10;
constexpr size_t kLengthBytes = 4;
constexpr size_t kClockBytes = 8;
constexpr int kLookAgain = 1000;  // ms
constexpr int kOnItsWay = 30000;  // ms

}  // namespace

void ListReader::refuse(const std::string& why) const {
  throw std::runtime_error(whose_ + " is not acceptable: " + why);
}

// Makes sure that so many bytes are there at at_.
void ListReader::need(size_t count) {
  if (bytes_.size() - at_ >= count) return;
  bytes_.erase(0, at_);
  at_ = 0;
  while (bytes_.size() < count) {
    pollfd entries[2] = {{fd_, POLLIN, 0}, {endFd_, POLLIN, 0}};
    const bool hurried = written_ && *written_;
    const int ready = poll(entries, 2, hurried ? kOnItsWay : kLookAgain);
    if (ready == 0 && hurried) throw std::runtime_error(whose_ + " ends too soon");
    if (ready <= 0) continue;
    if (entries[1].revents) throw std::runtime_error(whose_ + " was given up");
    const size_t had = bytes_.size();
    bytes_.resize(had + kRead);
    const ssize_t got = read(fd_, &bytes_[had], kRead);
    bytes_.resize(had + static_cast<size_t>(got > 0 ? got : 0));
    if (got < 0 && errno != EINTR && errno != EAGAIN) {
      throw std::runtime_error(whose_ + " cannot be read: " + strerror(errno));
    }
    if (got == 0) throw std::runtime_error(whose_ + " ends too soon");
  }
}

std::int64_t ListReader::clock() {
  need(kClockBytes);
  const auto seconds = engine::Decoder(std::string_view(bytes_).substr(at_, kClockBytes)).fixed64();
  at_ += kClockBytes;
  return static_cast<std::int64_t>(seconds);
}

std::optional<TreeEntry> ListReader::next() {
  need(kLengthBytes);
  const size_t length =
      engine::Decoder(std::string_view(bytes_).substr(at_, kLengthBytes)).fixed32();
  at_ += kLengthBytes;
  if (length == 0) return std::nullopt;
  if (length > kLongestEntry) refuse("an entry of " + std::to_string(length) + " bytes");
  need(length);
  TreeEntry entry;
  try {
    entry = takeTreeEntry(std::string_view(bytes_).substr(at_, length));
  } catch (const engine::ProtocolError& problem) {
    refuse(problem.what());
  }
  at_ += length;
  if (last_ && !comesBefore(*last_, entry.path)) {
    refuse("'" + host::visibleLine(entry.path) + "' comes after '" + host::visibleLine(*last_) +
           "'");
  }
  last_ = entry.path;
  return entry;
}

}  // namespace agent
