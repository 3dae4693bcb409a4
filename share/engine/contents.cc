#include "share/engine/contents.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "share/engine/manifest.h"

namespace engine {

namespace {

constexpr size_t kEntryFields = 128;     // bytes; more than the numbers of an entry take
constexpr size_t kZeroPiece = 64 << 10;  // bytes; what is left out if it is all zero

size_t pieceSize(const Extents& extent, std::uint64_t at) {
  return std::min<std::uint64_t>(extent.to() - at,
                                 extent.zerosMayBeHoles() ? kZeroPiece : kDataPiece);
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

ContentsSender::ContentsSender(RecordStream& stream, std::atomic<std::uint64_t>& bytes)
    : stream_(stream), bytes_(bytes), blocks_(kBlock) {}

Sent ContentsSender::send(int file, const struct stat& status, const Entry& entry) {
  const bool mayHaveHoles = status.st_blocks * 512 < status.st_size;
  if (entry.size <= kDataPiece && !mayHaveHoles) return sendWhole(file, entry);
  return sendPieces(file, status, entry);
}

Sent ContentsSender::sendWhole(int file, const Entry& entry) {
  stream_.makeRoom(recordSize(entry) + entry.size);
  Buffer& to = stream_.buffer();
  const size_t before = to.size();
  stream_.begin(Record::kWhole);
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
  Sent sent;
  sent.good = true;
  sent.size = static_cast<std::uint64_t>(count);
  sent.digest = digestOf(to.view().substr(contentsAt));
  scratch_.clear();
  putDigest(scratch_, *sent.digest);
  putFixed32(scratch_, static_cast<std::uint32_t>(count));
  std::memcpy(to.data() + digestAt, scratch_.data(), scratch_.size());
  bytes_ += sent.size;
  return sent;
}

void ContentsSender::begin(Record record, const Entry& entry) {
  stream_.makeRoom(recordSize(entry));
  stream_.begin(record);
  putEntry(stream_.buffer(), entry);
  digester_.begin();
  blocks_.begin();
}

void ContentsSender::end(const Sent& sent) {
  stream_.makeRoom(kEntryFields);
  stream_.begin(Record::kFileEnd);
  Buffer& to = stream_.buffer();
  putNumber(to, sent.good ? 1 : 0);
  putNumber(to, sent.size);
  putDigest(to, digester_.result());
}

bool ContentsSender::sendExtent(int file, const Extents& extent, bool hashBlocks, Sent& sent) {
  for (std::uint64_t at = extent.from(); at < extent.to();) {
    const size_t count = pieceSize(extent, at);
    stream_.makeRoom(count + kEntryFields);
    Buffer& buffer = stream_.buffer();
    const size_t before = buffer.size();
    stream_.begin(Record::kData);
    putNumber(buffer, at);
    putFixed32(buffer, 0);
    const size_t bytesAt = buffer.size();
    const ssize_t got = readFully(file, buffer.room(count), count, at);
    const auto size = static_cast<size_t>(std::max<ssize_t>(got, 0));
    const std::string_view piece(buffer.data() + bytesAt, size);
    if (size == 0 || (extent.zerosMayBeHoles() && allZero(piece.data(), size))) {
      buffer.resize(before);
    } else {
      setFixed32(buffer.data() + bytesAt - 4, static_cast<std::uint32_t>(size));
      buffer.grow(size);
      digester_.add(at, piece);
      if (hashBlocks) blocks_.add(at, piece);
    }
    at += size;
    bytes_ += size;
    if (got < 0) return false;
    if (size < count) {  // it was cut
      sent.size = at;
      return true;
    }
  }
  return true;
}

Sent ContentsSender::sendPieces(int file, const struct stat& status, const Entry& entry) {
  begin(Record::kFile, entry);
  Sent sent;
  sent.size = entry.size;
  sent.good = true;
  const bool large = entry.size >= kLargeFile;
  Extents extent(file, status);
  int error = 0;
  while (sent.good && sent.size == entry.size && extent.next()) {
    sent.good = sendExtent(file, extent, large, sent);
    if (!sent.good) error = errno;
  }
  sent.digest = digester_.result();
  if (large) sent.blocks = blocks_.finish(sent.size);
  end(sent);
  errno = error;
  return sent;
}

// One block of a large file, which is sent if it is not as before. What is a hole
// now is sent as zeros where it was none.
bool ContentsSender::patchBlock(int file, std::uint64_t at, const Digest* before, Sent& sent) {
  const size_t count = std::min<std::uint64_t>(kBlock, sent.size - at);
  const off_t data = ::lseek(file, static_cast<off_t>(at), SEEK_DATA);
  const bool hole = data < 0 ? errno == ENXIO : static_cast<std::uint64_t>(data) >= at + count;
  if (hole && before != nullptr && *before == Digest{}) {
    sent.blocks.push_back({});
    return true;
  }
  scratch_.clear();
  const ssize_t got = readFully(file, scratch_.room(count), count, at);
  if (got < 0) return false;
  scratch_.grow(static_cast<size_t>(got));
  bytes_ += static_cast<std::uint64_t>(got);
  if (static_cast<size_t>(got) < count) sent.size = at + static_cast<std::uint64_t>(got);
  const Digest now = digestOf(scratch_.view());
  sent.blocks.push_back(now);
  if (got == 0 || (before != nullptr && *before == now)) return true;
  stream_.makeRoom(scratch_.size() + kEntryFields);
  stream_.begin(Record::kData);
  putNumber(stream_.buffer(), at);
  putFixed32(stream_.buffer(), static_cast<std::uint32_t>(scratch_.size()));
  stream_.buffer().append(scratch_.view());
  digester_.add(at, scratch_.view());
  return true;
}

Sent ContentsSender::sendPatch(int file, const struct stat& status, const Entry& entry,
                               const std::vector<Digest>& before) {
  begin(Record::kPatch, entry);
  Sent sent;
  sent.size = static_cast<std::uint64_t>(status.st_size);
  sent.good = true;
  int error = 0;
  for (std::uint64_t at = 0; sent.good && at < sent.size; at += kBlock) {
    const size_t number = at / kBlock;
    sent.good = patchBlock(file, at, number < before.size() ? &before[number] : nullptr, sent);
    if (!sent.good) error = errno;
  }
  end(sent);
  errno = error;
  return sent;
}

std::optional<Digest> ContentsSender::digest(int file, const struct stat& status) {
  digester_.begin();
  Extents extent(file, status);
  while (extent.next()) {
    for (std::uint64_t at = extent.from(); at < extent.to();) {
      const size_t count = pieceSize(extent, at);
      scratch_.clear();
      char* to = scratch_.room(count);
      if (readFully(file, to, count, at) != static_cast<ssize_t>(count)) return std::nullopt;
      if (!extent.zerosMayBeHoles() || !allZero(to, count)) digester_.add(at, {to, count});
      at += count;
    }
  }
  return digester_.result();
}

}  // namespace engine
