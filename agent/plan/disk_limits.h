// Disk limits of a container that hold what is copied into it.
#ifndef QX_AGENT_DISK_LIMITS_H
#define QX_AGENT_DISK_LIMITS_H

#include <string>
#include <vector>

#include "framework/env_config.h"

namespace agent {

struct Survey;

/// What will be copied, by a survey.
struct CopiedFigures {
  long long bytes = 0;
  long long files = 0;
  bool counted = false;  ///< file by file; else from the file systems' own figures
};
CopiedFigures copiedFigures(const Survey& survey);

/// Room that a container's disk has beyond what is copied, in percent of that: where
/// the limit is a number in a file, and where it is the size of a file system of the
/// container's own, which a server that goes on growing must not fill: so much that a fifth
/// of it is free when what its first boot writes is there, too.
inline constexpr int kLimitRoomPercent = 10;
inline constexpr int kFileSystemRoomPercent = 30;

/// Raises the measured limits "diskspace" (1024-byte blocks) and "diskinodes" where
/// they leave less room than that. They come from the disk with "/" alone, which on a
/// server of several file systems, or one whose "/" is an overlay, is less than what is
/// copied. `ownFileSystem`: the limit becomes the size of a file system.
///
/// Returns what was raised; the text, with both figures, is for a person to read.
struct RaisedLimit {
  std::string name;
  long long limit;  ///< in the record's unit
  std::string text;
};
std::vector<RaisedLimit> raiseDiskLimits(QXA::QXAEnvConfig& measured, const CopiedFigures& copied,
                                         bool ownFileSystem);

/// The hard limit of that name in `config`; negative when it has none.
long long limitOf(const QXA::QXAEnvConfig& config, const std::string& name);

}  // namespace agent

#endif
