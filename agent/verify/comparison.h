// What a comparison of a server and its container found.
#ifndef QX_AGENT_VERIFY_COMPARISON_H
#define QX_AGENT_VERIFY_COMPARISON_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace agent {

/// The aspects:
///   missing, added     the entry is on the server only, or in the container only
///   type               of file, for instance directory and symbolic link
///   mode, owner, time  permission bits; numeric ids; modification time in ns
///   size, content      of regular files
///   target, device     of a symbolic link; numbers of a device node
///   links              which names are one file
///   attributes         extended ones: access lists and file capabilities among them
///   holes              the server's file is sparse, the container's is not
///   unreadable         something of it could not be read, so that it was not compared
struct TreeDifference {
  std::string path;  ///< absolute
  std::string aspect;
  std::string text;
  std::string reason;  ///< why it is as it should be; empty when it is not
};

struct TreeComparison {
  std::uint64_t entries = 0;  ///< compared
  std::uint64_t files = 0;    ///< regular ones among them
  std::uint64_t bytes = 0;    ///< in those
  std::uint64_t unexpected = 0;
  std::map<std::string, std::uint64_t> reasons;  ///< how many differences each explains
  std::vector<TreeDifference> differences;       ///< the first kMostDifferences
  std::uint64_t untold = 0;                      ///< how many more there are
};
inline constexpr size_t kMostDifferences = 100000;

}  // namespace agent

#endif
