#ifndef QX_SHARE_ENGINE_WIRE_H
#define QX_SHARE_ENGINE_WIRE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace engine {

/// What the other end sent is no stream of ours. what() is for people.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Bytes of a frame: a block of memory that grows, never cleared beforehand.
class Buffer {
 public:
  explicit Buffer(size_t capacity = 0);

  char* data() { return bytes_.get(); }
  const char* data() const { return bytes_.get(); }
  size_t size() const { return size_; }
  size_t capacity() const { return capacity_; }
  std::string_view view() const { return {bytes_.get(), size_}; }

  /// At least this much room in all; what is held stays.
  void reserve(size_t capacity);
  /// Room for count more bytes is there, and where it begins.
  char* room(size_t count);
  /// count bytes were put into that room.
  void grow(size_t count) { size_ += count; }
  void resize(size_t size);  ///< what is added is not initialised
  void clear() { size_ = 0; }
  void append(std::string_view bytes);

 private:
  std::unique_ptr<char[]> bytes_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

// Numbers are in groups of seven bits, the lowest first; the high bit of a byte
// says that another follows. Signed ones have their sign in the lowest bit.

void putNumber(Buffer& to, std::uint64_t value);
void putSigned(Buffer& to, std::int64_t value);
void putFixed32(Buffer& to, std::uint32_t value);
void putFixed64(Buffer& to, std::uint64_t value);
/// The length, then the bytes.
void putText(Buffer& to, std::string_view text);

/// Takes a piece of memory apart, and never looks beyond its end: everything that
/// is not there, too large or written in two ways throws ProtocolError. What it
/// returns as text lies in that piece of memory.
class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : bytes_(bytes) {}

  bool atEnd() const { return bytes_.empty(); }
  size_t left() const { return bytes_.size(); }

  std::uint8_t byte();
  /// A number that is at most the limit; what names it in the error's text.
  std::uint64_t number(std::uint64_t limit, const char* what);
  std::uint64_t number() { return number(UINT64_MAX, "number"); }
  std::int64_t signedNumber();
  std::uint32_t fixed32();
  std::uint64_t fixed64();
  /// A text of at most limit bytes.
  std::string_view text(size_t limit, const char* what);
  std::string_view bytes(size_t count, const char* what);

 private:
  std::string_view bytes_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_WIRE_H
