// One entry of a file tree, with everything that a faithful copy keeps, and how it
// travels from the server to the node.
#ifndef QX_AGENT_VERIFY_TREE_ENTRY_H
#define QX_AGENT_VERIFY_TREE_ENTRY_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "share/engine/digest.h"
#include "share/engine/records.h"

namespace agent {

struct TreeEntry {
  std::string path;  ///< from the top of the tree, without a slash in front; "" is the top
  mode_t mode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  std::int64_t seconds = 0;  ///< modification time
  std::uint32_t nanoseconds = 0;
  std::int64_t changed = 0;    ///< time of the last change of any kind (ctime), seconds
  std::uint64_t size = 0;      ///< of files, bytes
  std::uint64_t occupied = 0;  ///< of files, bytes on the disk
  std::uint64_t file = 0;      ///< the same number for all names of one file; 0: it has one name
  std::uint32_t major = 0, minor = 0;     ///< of devices
  std::string target;                     ///< of symbolic links
  engine::Attributes attributes;          ///< extended ones, access lists among them
  std::optional<engine::Digest> content;  ///< of files that could be read
  bool written = false;  ///< a process has it open in a way that leaves no trace in its times
  std::string problem;   ///< why something of it could not be read
};

/// Whether `first` comes before `second` in a list: directories come in the order of
/// their names, each before those in it, and all entries of a directory one after the
/// other by their names, bytes compared. The top comes first of all.
bool comesBefore(std::string_view first, std::string_view second);

/// The directory that holds an entry; "" for those at the top.
std::string_view directoryOf(std::string_view path);

/// The hash of a file's content: XXH3 of its pieces that are not all zero and of where
/// each begins, so that holes are not read and make no difference. Nothing, and errno,
/// when it cannot be read. The file may grow or shrink meanwhile.
std::optional<engine::Digest> contentOf(int file);

/// Appends what travels: a length, and the fields.
void putTreeEntry(engine::Buffer& to, const TreeEntry& entry);

/// Takes apart what follows the length. Everything is checked; throws
/// engine::ProtocolError.
TreeEntry takeTreeEntry(std::string_view bytes);

/// The longest that one may be.
inline constexpr size_t kLongestEntry = 2 << 20;

}  // namespace agent

#endif
