#ifndef QX_SHARE_ENGINE_EXTENTS_H
#define QX_SHARE_ENGINE_EXTENTS_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>

namespace engine {

/// The parts of a file that hold data, from front to back; holes are passed over.
class Extents {
 public:
  /// Of an open file, up to the size that status tells. Only one that takes less
  /// room than it is long is asked for its holes.
  Extents(int file, const struct stat& status);

  /// The next part. False at the end.
  bool next();
  std::uint64_t from() const { return from_; }
  std::uint64_t to() const { return to_; }

  /// The file has holes, but its file system cannot tell where: what is all zero
  /// may be one.
  bool zerosMayBeHoles() const { return blind_; }

 private:
  int file_;
  std::uint64_t size_;
  bool asks_;
  bool blind_ = false;
  std::uint64_t from_ = 0;
  std::uint64_t to_ = 0;
};

/// Reads until count bytes are there or the file ends; less than count: it ended.
/// -1 and errno on failure.
ssize_t readFully(int file, char* to, size_t count, std::uint64_t offset);

bool allZero(const char* bytes, size_t count);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_EXTENTS_H
