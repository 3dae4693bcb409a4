// The line that shows what a migration is doing, while it does it.
#ifndef QX_AGENT_PROGRAMS_PROGRESS_LINE_H
#define QX_AGENT_PROGRAMS_PROGRESS_LINE_H

#include <cstddef>
#include <optional>
#include <string>

#include "agent/programs/copy_meter.h"

namespace agent {

struct Progress {
  std::string stage, text;           ///< its name, and what it does
  std::string percent;               ///< what it says of itself, such as "copy: 12%"; or nothing
  std::optional<CopyAmount> copied;  ///< of a stage that copies files
  long long toCopy = 0;              ///< bytes in all; 0: not known
  std::optional<long long> outage;   ///< seconds since the server's services were stopped
};

/// At most `columns` wide. What is left out where it is too narrow is what the stage does;
/// the outage is there always, at the end.
std::string progressLine(const Progress& progress, size_t columns);

}  // namespace agent

#endif
