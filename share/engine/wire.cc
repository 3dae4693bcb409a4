#include "share/engine/wire.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace engine {

namespace {

constexpr int kGroupBits = 7;
constexpr unsigned kGroupMask = 0x7f;
constexpr unsigned kMoreFollows = 0x80;
constexpr int kLongestNumber = 10;  // bytes that 64 bits may take

[[noreturn]] void complain(const char* what, const char* problem) {
  throw ProtocolError(std::string("a ") + what + " in the stream " + problem);
}

}  // namespace

Buffer::Buffer(size_t capacity) { reserve(capacity); }

void Buffer::reserve(size_t capacity) {
  if (capacity <= capacity_) return;
  auto larger = std::make_unique_for_overwrite<char[]>(capacity);
  if (size_ > 0) std::memcpy(larger.get(), bytes_.get(), size_);
  bytes_ = std::move(larger);
  capacity_ = capacity;
}

char* Buffer::room(size_t count) {
  if (capacity_ - size_ < count) reserve(std::max(capacity_ * 2, size_ + count));
  return bytes_.get() + size_;
}

void Buffer::resize(size_t size) {
  reserve(size);
  size_ = size;
}

void Buffer::append(std::string_view bytes) {
  if (bytes.empty()) return;
  std::memcpy(room(bytes.size()), bytes.data(), bytes.size());
  size_ += bytes.size();
}

void putNumber(Buffer& to, std::uint64_t value) {
  char* at = to.room(kLongestNumber);
  size_t count = 0;
  while (value > kGroupMask) {
    at[count++] = static_cast<char>((value & kGroupMask) | kMoreFollows);
    value >>= kGroupBits;
  }
  at[count++] = static_cast<char>(value);
  to.grow(count);
}

void putSigned(Buffer& to, std::int64_t value) {
  const auto bits = static_cast<std::uint64_t>(value);
  putNumber(to, value < 0 ? (~bits << 1) | 1 : bits << 1);
}

void putFixed32(Buffer& to, std::uint32_t value) {
  char* at = to.room(sizeof value);
  for (size_t i = 0; i < sizeof value; ++i) at[i] = static_cast<char>(value >> (8 * i));
  to.grow(sizeof value);
}

void putFixed64(Buffer& to, std::uint64_t value) {
  putFixed32(to, static_cast<std::uint32_t>(value));
  putFixed32(to, static_cast<std::uint32_t>(value >> 32));
}

void putText(Buffer& to, std::string_view text) {
  putNumber(to, text.size());
  to.append(text);
}

std::uint8_t Decoder::byte() {
  if (bytes_.empty()) complain("byte", "is missing");
  const auto value = static_cast<std::uint8_t>(bytes_.front());
  bytes_.remove_prefix(1);
  return value;
}

std::uint64_t Decoder::number(std::uint64_t limit, const char* what) {
  std::uint64_t value = 0;
  for (int shift = 0;; shift += kGroupBits) {
    const unsigned group = byte();
    const std::uint64_t part = group & kGroupMask;
    if (shift > 63 || (shift == 63 && part > 1)) complain(what, "is too large");
    value |= part << shift;
    if ((group & kMoreFollows) != 0) continue;
    if (part == 0 && shift > 0) complain(what, "is not in its shortest form");
    break;
  }
  if (value > limit) complain(what, "is too large");
  return value;
}

std::int64_t Decoder::signedNumber() {
  const std::uint64_t bits = number();
  return static_cast<std::int64_t>((bits & 1) != 0 ? ~(bits >> 1) : bits >> 1);
}

std::uint32_t Decoder::fixed32() {
  const std::string_view four = bytes(4, "fixed number");
  std::uint32_t value = 0;
  for (size_t i = 4; i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(four[i]);
  return value;
}

std::uint64_t Decoder::fixed64() {
  const std::uint64_t low = fixed32();
  return static_cast<std::uint64_t>(fixed32()) << 32 | low;
}

std::string_view Decoder::text(size_t limit, const char* what) {
  return bytes(number(limit, what), what);
}

std::string_view Decoder::bytes(size_t count, const char* what) {
  if (count > bytes_.size()) complain(what, "is cut off");
  const std::string_view taken = bytes_.substr(0, count);
  bytes_.remove_prefix(count);
  return taken;
}

}  // namespace engine
