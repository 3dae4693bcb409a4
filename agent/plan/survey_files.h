// A bounded look at the files that are to be copied.
#ifndef QX_AGENT_PLAN_SURVEY_FILES_H
#define QX_AGENT_PLAN_SURVEY_FILES_H

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "agent/system/cancel.h"

namespace agent {

struct FileCount {
  long long bytes = 0;  ///< allocated; a file of several names counts once
  long long files = 0;  ///< inodes
};

struct FileFindings {
  bool complete = false;
  std::map<std::string, FileCount> perMount;  ///< by mount point
  uid_t largestUid = 0;
  gid_t largestGid = 0;
  std::string largestUidPath, largestGidPath;
  std::vector<std::string> immutableFiles;  ///< the first ten
  long long immutableCount = 0;
};

/// Walks from `root` without following links. `mounts` has every mount point below,
/// and whether its files count; those that do not are not entered. Places where
/// immutable files are likely come first, in case time runs out. What matches a
/// pattern (fnmatch, "*" does not span "/") is left out with everything below it.
/// Mount points and patterns are full paths, as the walk makes them from `root`.
/// `cancel` may be null.
FileFindings lookAtFiles(const std::string& root, const std::map<std::string, bool>& mounts,
                         const std::vector<std::string>& excludes, std::chrono::seconds timeout,
                         const CancelToken* cancel);

}  // namespace agent

#endif
