#include "share/engine/records.h"

#include <sys/stat.h>

#include <limits>

#include "host/visible.h"

namespace engine {

namespace {

constexpr std::uint64_t kMostSeconds = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kMost32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMostMode = 0177777;
constexpr std::uint64_t kNanosecondsPerSecond = 1000000000;

void checkName(std::string_view name) {
  if (name.empty() || name.size() > kLongestName || name == "." || name == ".." ||
      name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos)
    throw ProtocolError("'" + host::visibleLine(name.substr(0, kLongestName)) +
                        "' is not the name of a directory entry");
}

bool hasKnownType(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
    case S_IFDIR:
    case S_IFLNK:
    case S_IFCHR:
    case S_IFBLK:
    case S_IFIFO:
    case S_IFSOCK:
      return true;
    default:
      return false;
  }
}

void takeAttributes(Decoder& from, Attributes& attributes) {
  const std::uint64_t count = from.number(kMostAttributes, "number of attributes");
  attributes.clear();
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::string_view name = from.text(kLongestName, "attribute name");
    const std::string_view value = from.text(kLongestAttribute, "attribute value");
    if (!carriesAttribute(name) || name.find('\0') != std::string_view::npos)
      throw ProtocolError("an extended attribute '" + host::visibleLine(name) +
                          "' is not carried over");
    if (!attributes.empty() && attributes.back().name >= name)
      throw ProtocolError("extended attributes are out of order");
    attributes.push_back({std::string(name), std::string(value)});
  }
}

}  // namespace

void putEntry(Buffer& to, const Entry& entry) {
  putText(to, entry.name);
  putNumber(to, entry.mode);
  putNumber(to, entry.uid);
  putNumber(to, entry.gid);
  putSigned(to, entry.seconds);
  putNumber(to, entry.nanoseconds);
  if (S_ISREG(entry.mode)) putNumber(to, entry.size);
  if (S_ISLNK(entry.mode)) putText(to, entry.target);
  if (S_ISCHR(entry.mode) || S_ISBLK(entry.mode)) {
    putNumber(to, entry.major);
    putNumber(to, entry.minor);
  }
  putNumber(to, entry.attributes.size());
  for (const Attribute& attribute : entry.attributes) {
    putText(to, attribute.name);
    putText(to, attribute.value);
  }
}

void takeEntry(Decoder& from, Entry& entry) {
  entry.name = from.text(kLongestName, "name");
  entry.mode = static_cast<mode_t>(from.number(kMostMode, "mode"));
  if (!hasKnownType(entry.mode)) throw ProtocolError("an entry has an unknown file type");
  if (!S_ISDIR(entry.mode)) checkName(entry.name);
  if (S_ISDIR(entry.mode) && !entry.name.empty())
    throw ProtocolError("a directory's own entry has a name");
  entry.uid = static_cast<uid_t>(from.number(kMost32, "owner"));
  entry.gid = static_cast<gid_t>(from.number(kMost32, "group"));
  entry.seconds = from.signedNumber();
  entry.nanoseconds =
      static_cast<std::uint32_t>(from.number(kNanosecondsPerSecond - 1, "nanoseconds"));
  entry.size = S_ISREG(entry.mode) ? from.number(kMostSeconds, "size") : 0;
  entry.target = {};
  if (S_ISLNK(entry.mode)) {
    entry.target = from.text(kLongestTarget, "link target");
    if (entry.target.empty() || entry.target.find('\0') != std::string_view::npos)
      throw ProtocolError("a symbolic link's target is not a path");
  }
  entry.major = entry.minor = 0;
  if (S_ISCHR(entry.mode) || S_ISBLK(entry.mode)) {
    entry.major = static_cast<std::uint32_t>(from.number(kMost32, "device number"));
    entry.minor = static_cast<std::uint32_t>(from.number(kMost32, "device number"));
  }
  takeAttributes(from, entry.attributes);
}

void putDigest(Buffer& to, const Digest& digest) {
  putFixed64(to, digest.high);
  putFixed64(to, digest.low);
}

Digest takeDigest(Decoder& from) {
  Digest digest;
  digest.high = from.fixed64();
  digest.low = from.fixed64();
  return digest;
}

std::string_view takeName(Decoder& from) {
  const std::string_view name = from.text(kLongestName, "name");
  checkName(name);
  return name;
}

std::string_view takePath(Decoder& from) {
  const std::string_view path = from.text(kLongestPath, "path");
  for (std::string_view rest = path; !rest.empty();) {
    const size_t slash = rest.find('/');
    checkName(rest.substr(0, slash));
    if (slash == std::string_view::npos) break;
    rest.remove_prefix(slash + 1);
    if (rest.empty()) throw ProtocolError("a path ends with a slash");
  }
  return path;
}

bool isAccessList(std::string_view name) {
  return name == "system.posix_acl_access" || name == "system.posix_acl_default";
}

bool carriesAttribute(std::string_view name) {
  for (const std::string_view prefix : {"user.", "trusted.", "security."})
    if (name.size() > prefix.size() && name.substr(0, prefix.size()) == prefix) return true;
  return isAccessList(name);
}

std::string joinPath(std::string_view directory, std::string_view name) {
  std::string path;
  path.reserve(directory.size() + 1 + name.size());
  path = directory;
  if (!path.empty()) path += '/';
  path += name;
  return path;
}

}  // namespace engine
