#include "share/engine/contents.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace engine {

namespace {

constexpr size_t kEntryFields = 128;     // bytes; more than the numbers of an entry take
constexpr size_t kZeroPiece = 64 << 10;  // bytes; what is left out if it is all zero
constexpr blkcnt_t kStatBlock = 512;     // bytes

// Reads until count bytes are there or the file ends. Less than count: it ended.
// -1 and errno on failure.
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

bool mayHaveHoles(const struct stat& status) {
  return status.st_blocks * kStatBlock < status.st_size;
}

void setFixed32(char* at, std::uint32_t value) {
  for (size_t i = 0; i < sizeof value; ++i) at[i] = static_cast<char>(value >> (8 * i));
}

}  // namespace

size_t recordSize(const Entry& entry) {
  size_t size = kEntryFields + entry.name.size() + entry.target.size();
  for (const Attribute& attribute : entry.attributes)
    size += 8 + attribute.name.size() + attribute.value.size();
  return size;
}

Sent ContentsSender::send(int file, const struct stat& status, const Entry& entry) {
  const size_t entrySize = recordSize(entry);
  if (entry.size <= kDataPiece && !mayHaveHoles(status)) return sendWhole(file, entry, entrySize);
  return sendPieces(file, status, entry, entrySize);
}

Sent ContentsSender::sendWhole(int file, const Entry& entry, size_t entrySize) {
  stream_.makeRoom(entrySize + entry.size);
  Buffer& to = stream_.buffer();
  const size_t before = to.size();
  stream_.begin(Record::Whole);
  putEntry(to, entry);
  const size_t digestAt = to.size();
  putDigest(to, {});
  putFixed32(to, 0);
  const size_t contentsAt = to.size();
  const ssize_t count = readFully(file, to.room(entry.size), entry.size, 0);
  if (count < 0) {
    to.resize(before);
    return {};
  }
  to.grow(static_cast<size_t>(count));
  Sent sent{true, digestOf(to.view().substr(contentsAt)), static_cast<std::uint64_t>(count)};
  Buffer fields(24);
  putDigest(fields, sent.digest);
  putFixed32(fields, static_cast<std::uint32_t>(count));
  std::memcpy(to.data() + digestAt, fields.data(), fields.size());
  bytes_ += sent.size;
  return sent;
}

bool ContentsSender::sendExtent(int file, std::uint64_t from, std::uint64_t to, bool skipZeros,
                                Sent& sent) {
  while (from < to) {
    const size_t count = std::min<std::uint64_t>(to - from, skipZeros ? kZeroPiece : kDataPiece);
    stream_.makeRoom(count + kEntryFields);
    Buffer& buffer = stream_.buffer();
    const size_t before = buffer.size();
    stream_.begin(Record::Data);
    putNumber(buffer, from);
    putFixed32(buffer, 0);
    const size_t at = buffer.size();
    const ssize_t got = readFully(file, buffer.room(count), count, from);
    const bool nothing =
        got <= 0 || (skipZeros && allZero(buffer.data() + at, static_cast<size_t>(got)));
    if (nothing) {
      buffer.resize(before);
    } else {
      setFixed32(buffer.data() + at - 4, static_cast<std::uint32_t>(got));
      buffer.grow(static_cast<size_t>(got));
      digester_.add(from, {buffer.data() + at, static_cast<size_t>(got)});
    }
    if (got < 0) return false;
    from += static_cast<std::uint64_t>(got);
    bytes_ += static_cast<std::uint64_t>(got);
    if (static_cast<size_t>(got) < count) {
      sent.size = from;
      break;
    }
  }
  return true;
}

Sent ContentsSender::sendPieces(int file, const struct stat& status, const Entry& entry,
                                size_t entrySize) {
  stream_.makeRoom(entrySize);
  stream_.begin(Record::File);
  putEntry(stream_.buffer(), entry);
  digester_.begin();

  Sent sent;
  sent.size = entry.size;
  sent.good = true;
  bool seekable = mayHaveHoles(status);
  bool skipZeros = false;
  int error = 0;
  for (std::uint64_t at = 0; at < sent.size;) {
    std::uint64_t end = sent.size;
    if (seekable) {
      const off_t data = ::lseek(file, static_cast<off_t>(at), SEEK_DATA);
      if (data < 0 && errno == ENXIO) break;  // only a hole is left
      const off_t hole = data < 0 ? -1 : ::lseek(file, data, SEEK_HOLE);
      if (hole < 0) {
        seekable = false;
        skipZeros = true;
      } else {
        at = static_cast<std::uint64_t>(data);
        end = std::min(sent.size, static_cast<std::uint64_t>(hole));
        if (at >= end) break;
      }
    }
    if (!sendExtent(file, at, end, skipZeros, sent)) {
      error = errno;
      sent.good = false;
      break;
    }
    at = end;
  }
  sent.digest = digester_.result();
  stream_.makeRoom(kEntryFields);
  stream_.begin(Record::FileEnd);
  Buffer& to = stream_.buffer();
  putNumber(to, sent.good ? 1 : 0);
  putNumber(to, sent.size);
  putDigest(to, sent.digest);
  errno = error;
  return sent;
}

}  // namespace engine
