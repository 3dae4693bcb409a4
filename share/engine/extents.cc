#include "share/engine/extents.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace engine {

namespace {

constexpr blkcnt_t kStatBlock = 512;  // bytes

}  // namespace

Extents::Extents(int file, const struct stat& status)
    : file_(file),
      size_(static_cast<std::uint64_t>(status.st_size)),
      asks_(status.st_blocks * kStatBlock < status.st_size) {}

bool Extents::next() {
  from_ = to_;
  to_ = size_;
  if (from_ >= size_) return false;
  if (!asks_) return true;
  const off_t data = ::lseek(file_, static_cast<off_t>(from_), SEEK_DATA);
  if (data < 0 && errno == ENXIO) return false;  // only a hole is left
  const off_t hole = data < 0 ? -1 : ::lseek(file_, data, SEEK_HOLE);
  if (hole < 0) {
    asks_ = false;
    blind_ = true;
    return true;
  }
  from_ = static_cast<std::uint64_t>(data);
  to_ = std::min(size_, static_cast<std::uint64_t>(hole));
  return from_ < to_;
}

ssize_t readFully(int file, char* to, size_t count, std::uint64_t offset) {
  size_t have = 0;
  while (have < count) {
    const ssize_t got = ::pread(file, to + have, count - have, static_cast<off_t>(offset + have));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    have += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(have);
}

bool allZero(const char* bytes, size_t count) {
  return count == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

}  // namespace engine
