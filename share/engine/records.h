#ifndef QX_SHARE_ENGINE_RECORDS_H
#define QX_SHARE_ENGINE_RECORDS_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "share/engine/digest.h"
#include "share/engine/wire.h"

namespace engine {

// What the payload of a Records frame is made of, one record after the other. A
// record is a byte that says which, then its fields. Between DirBegin and DirEnd
// names are those of entries of that directory.

enum class Record : std::uint8_t {
  kDirBegin = 1,  ///< path, DirFlags
  kDirEnd = 2,    ///< the directory's own entry
  kDir = 3,       ///< name of a directory that is in it
  kWhole = 4,     ///< entry, digest, contents: a file whose contents stand here
  kFile = 5,      ///< entry; Data records and a FileEnd follow
  kPatch = 6,     ///< the same, but what no Data record names stays as it is
  kData = 7,      ///< offset, bytes
  kFileEnd = 8,   ///< size, digest
  kOther = 9,     ///< entry of a symbolic link, a device, a fifo or a socket
  kUpdate = 10,   ///< entry: owner, mode, times and attributes of one that is there
  kListed = 11,   ///< entry, flags: to be compared, and wanted where it differs
  kKeep = 12,     ///< name of something that is to stay as it is
  kRemove = 13,   ///< name of something that is gone
  kLink = 14      ///< path and path: the first is the same file as the second
};

/// Flags of DirBegin.
inline constexpr unsigned kComplete = 1;  ///< what is not named is gone
/// Flags of Listed.
inline constexpr unsigned kHasLinks = 1;  ///< the file has other names

inline constexpr size_t kLongestName = 255;
inline constexpr size_t kLongestPath = 64 << 10;
inline constexpr size_t kLongestTarget = 4096;
inline constexpr size_t kLongestAttribute = 64 << 10;
inline constexpr size_t kMostAttributes = 4096;
/// All attributes of one entry, names and values. What is above is left out,
/// and said.
inline constexpr size_t kAttributesLimit = 768 << 10;
inline constexpr size_t kDataPiece = 224 << 10;  ///< bytes in a Data record, or less

struct Attribute {
  std::string name;
  std::string value;
  bool operator==(const Attribute&) const = default;
};
using Attributes = std::vector<Attribute>;  ///< sorted by name

/// What is known of one entry of a directory.
struct Entry {
  std::string_view name;
  mode_t mode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  std::int64_t seconds = 0;  ///< modification time
  std::uint32_t nanoseconds = 0;
  std::uint64_t size = 0;   ///< of files
  std::uint32_t major = 0;  ///< of devices
  std::uint32_t minor = 0;  ///<
  std::string_view target;  ///< of symbolic links
  Attributes attributes;
};

void putEntry(Buffer& to, const Entry& entry);
/// Takes it apart and checks every field; throws ProtocolError. The texts lie
/// in the decoder's memory.
void takeEntry(Decoder& from, Entry& entry);

void putDigest(Buffer& to, const Digest& digest);
Digest takeDigest(Decoder& from);

/// A name of one directory entry: not empty, ".", "..", too long, nor with a
/// slash or zero byte. Throws ProtocolError.
std::string_view takeName(Decoder& from);
/// Names with one slash between them, or nothing for the top. Throws as above.
std::string_view takePath(Decoder& from);

/// Whether an extended attribute of this name is carried over at all.
bool carriesAttribute(std::string_view name);
/// Whether it is an access list.
bool isAccessList(std::string_view name);

/// "directory/name", where the directory may be the top.
std::string joinPath(std::string_view directory, std::string_view name);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_RECORDS_H
