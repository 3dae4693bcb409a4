#include "agent/verify/tree_entry.h"

#include <sys/stat.h>

#include <vector>

#include "share/engine/extents.h"
#include "share/engine/wire.h"

namespace agent {

namespace {

constexpr size_t kPiece = 128 << 10;
constexpr size_t kLongestProblem = 4096;

enum Flags : unsigned { kHasContent = 1, kIsWritten = 2, kHasProblem = 4 };

std::string_view nameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// Of paths, "a/b" before "a.b": a name that ends is before one that goes on.
int compareByNames(std::string_view first, std::string_view second) {
  const size_t common = std::min(first.size(), second.size());
  for (size_t i = 0; i < common; ++i) {
    if (first[i] == second[i]) continue;
    if (first[i] == '/') return -1;
    if (second[i] == '/') return 1;
    return static_cast<unsigned char>(first[i]) < static_cast<unsigned char>(second[i]) ? -1 : 1;
  }
  return first.size() == second.size() ? 0 : first.size() < second.size() ? -1 : 1;
}

}  // namespace

std::string_view directoryOf(std::string_view path) {
  const size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

bool comesBefore(std::string_view first, std::string_view second) {
  if (first.empty() || second.empty()) return first.empty() && !second.empty();
  const int order = compareByNames(directoryOf(first), directoryOf(second));
  return order < 0 || (order == 0 && nameOf(first) < nameOf(second));
}

std::optional<engine::Digest> contentOf(int file) {
  struct stat status;
  if (fstat(file, &status) != 0) return std::nullopt;
  engine::Digester digester;
  static thread_local std::vector<char> piece(kPiece);
  engine::Extents extents(file, status);
  std::uint64_t done = 0;  // up to here
  while (extents.next()) {
    // In pieces that begin at the same places however the file lies on the disk.
    std::uint64_t at = std::max(done, extents.from() / kPiece * kPiece);
    for (; at < extents.to(); at += kPiece) {
      const ssize_t got = engine::readFully(file, piece.data(), kPiece, at);
      if (got < 0) return std::nullopt;
      const auto count = static_cast<size_t>(got);
      if (!engine::allZero(piece.data(), count)) digester.add(at, {piece.data(), count});
    }
    done = at;
  }
  return digester.result();
}

void putTreeEntry(engine::Buffer& to, const TreeEntry& entry) {
  engine::Buffer body;
  engine::putText(body, entry.path);
  engine::Entry fields;
  if (!S_ISDIR(entry.mode)) fields.name = nameOf(entry.path);
  fields.mode = entry.mode;
  fields.uid = entry.uid;
  fields.gid = entry.gid;
  fields.seconds = entry.seconds;
  fields.nanoseconds = entry.nanoseconds;
  fields.size = entry.size;
  fields.major = entry.major;
  fields.minor = entry.minor;
  fields.target = entry.target;
  fields.attributes = entry.attributes;
  engine::putEntry(body, fields);
  engine::putSigned(body, entry.changed);
  engine::putNumber(body, entry.occupied);
  engine::putNumber(body, entry.file);
  engine::putNumber(body, (entry.content ? kHasContent : 0u) | (entry.written ? kIsWritten : 0u) |
                              (entry.problem.empty() ? 0u : kHasProblem));
  if (entry.content) engine::putDigest(body, *entry.content);
  if (!entry.problem.empty()) {
    engine::putText(body, std::string_view(entry.problem).substr(0, kLongestProblem));
  }
  engine::putFixed32(to, static_cast<std::uint32_t>(body.size()));
  to.append(body.view());
}

TreeEntry takeTreeEntry(std::string_view bytes) {
  engine::Decoder from(bytes);
  TreeEntry entry;
  entry.path = engine::takePath(from);
  engine::Entry fields;
  engine::takeEntry(from, fields);
  if (!S_ISDIR(fields.mode) && fields.name != nameOf(entry.path))
    throw engine::ProtocolError("an entry has two names");
  entry.mode = fields.mode;
  entry.uid = fields.uid;
  entry.gid = fields.gid;
  entry.seconds = fields.seconds;
  entry.nanoseconds = fields.nanoseconds;
  entry.size = fields.size;
  entry.major = fields.major;
  entry.minor = fields.minor;
  entry.target = fields.target;
  entry.attributes = std::move(fields.attributes);
  entry.changed = from.signedNumber();
  entry.occupied = from.number();
  entry.file = from.number();
  const std::uint64_t flags =
      from.number(kHasContent | kIsWritten | kHasProblem, "flags of an entry");
  if (flags & kHasContent) entry.content = engine::takeDigest(from);
  entry.written = flags & kIsWritten;
  if (flags & kHasProblem) entry.problem = from.text(kLongestProblem, "problem");
  if (!from.atEnd()) throw engine::ProtocolError("an entry goes on after its end");
  return entry;
}

}  // namespace agent
