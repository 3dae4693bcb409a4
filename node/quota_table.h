// The table of a container's disk limits: what "qxquota stat ID -t" prints and
// what the private area keeps. docs/quota-format.md describes the text:
//
//   User/group grace times
//   # kind block-grace inode-grace
//   user 604800 604800
//   group 604800 604800
//   User/group objects
//   # kind id block-used block-soft block-hard block-grace inode-used inode-soft inode-hard
//   inode-grace user 1000 0 102400 204800 0 0 1000 2000 0
//
// Every number is plain decimal, blocks are of 1024 bytes, times are seconds.
#ifndef QX_NODE_QUOTA_TABLE_H
#define QX_NODE_QUOTA_TABLE_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace node {

/// What counts for one user or group. A limit of 0 means no limit.
struct QuotaLine {
  uint64_t used = 0;
  uint64_t soft = 0;
  uint64_t hard = 0;
  uint64_t grace = 0;  ///< time left while over the soft limit, 0 otherwise
  bool operator==(const QuotaLine&) const = default;
};

struct QuotaObject {
  QuotaLine blocks;
  QuotaLine inodes;
  /// An object without limits has no place in the table.
  bool limited() const { return blocks.soft || blocks.hard || inodes.soft || inodes.hard; }
  bool operator==(const QuotaObject&) const = default;
};

/// How long a soft limit may be exceeded. The start value is the kernel's.
struct QuotaGrace {
  uint64_t blocks = 604800;
  uint64_t inodes = 604800;
  bool operator==(const QuotaGrace&) const = default;
};

enum class QuotaKind { kUser = 0, kGroup = 1 };

struct QuotaKindTable {
  QuotaGrace grace;
  std::map<uint32_t, QuotaObject> objects;
  bool operator==(const QuotaKindTable&) const = default;
};

struct QuotaTable {
  std::array<QuotaKindTable, 2> kinds;
  QuotaKindTable& of(QuotaKind kind) { return kinds[static_cast<size_t>(kind)]; }
  const QuotaKindTable& of(QuotaKind kind) const { return kinds[static_cast<size_t>(kind)]; }
  bool operator==(const QuotaTable&) const = default;
};

/// The table as text: users before groups, ids ascending, objects without
/// limits left out.
std::string formatQuotaTable(const QuotaTable& table);

/// The same of a table without anything, and what can be written behind a table of
/// either function, or behind such lines, to change it: the limits of one user or group,
/// and the grace times of all users or groups.
std::string emptyQuotaTable();
std::string quotaObjectLine(QuotaKind kind, uint32_t id, const QuotaObject& object);
std::string quotaGraceLines(QuotaKind kind, const QuotaGrace& grace);

/// Reads such a text; a later line replaces an earlier one about the same. An empty text
/// is the empty table. Lines that begin with "#" and empty lines are passed over. Throws Error
/// (kBadConfig) that begins with "line N: ".
QuotaTable parseQuotaTable(std::string_view text);

}  // namespace node

#endif
