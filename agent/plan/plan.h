// The plan of a migration: what will happen, and what stands in its way.
#ifndef QX_AGENT_PLAN_PLAN_H
#define QX_AGENT_PLAN_PLAN_H

#include <string>
#include <vector>

#include "agent/plan/exclusions.h"
#include "agent/plan/limits.h"

namespace agent {

enum class Severity { kNote, kWarning, kBlock };

struct Finding {
  Severity severity;
  std::string text;  ///< one line
};

enum class Verdict { kReady, kReadyWithWarnings, kBlocked };

struct MissingMount {
  std::string mountPoint, type, device;
  std::string reason = "";  // empty when it is left out for what it is, or not mounted
};

struct Plan {
  std::vector<PlannedExclude> excludes;
  std::vector<MissingMount> missingMounts;
  std::vector<PlannedLimit> limits;
  long long bytes = 0, files = 0;  ///< to be copied
  bool counted = false;            ///< file by file; else from the file systems' figures
  std::string distribution;
  std::vector<std::string> addresses;
  std::vector<Finding> findings;  ///< blocks first, then warnings, then notes
  Verdict verdict = Verdict::kReady;
};

}  // namespace agent

#endif
