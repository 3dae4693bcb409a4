// The plan of a migration: what will happen, and what stands in its way. Pure: facts
// in, plan out.
#ifndef QX_AGENT_PLAN_PLAN_H
#define QX_AGENT_PLAN_PLAN_H

#include <string>
#include <vector>

#include "agent/plan/measurement.h"
#include "agent/plan/node_facts.h"
#include "agent/plan/survey.h"
#include "agent/system/shell_format.h"

namespace agent {

struct PlanFacts {
  std::string source;  // as the administrator calls the server
  long long ctid = 0;
  Measurement measurement;
  Survey survey;
  NodeFacts node;
  ShellVariables config;                   // of the container, options included
  std::vector<std::string> givenExcludes;  // by the administrator
  std::vector<std::string> services;       // to be stopped
};

enum class Severity { note, warning, block };

struct Finding {
  Severity severity;
  std::string text;  // one line
};

enum class Verdict { ready, readyWithWarnings, blocked };

struct PlannedExclude {
  std::string path;
  std::string reason;
};

struct MissingMount {
  std::string mountPoint, type, device;
  std::string reason = "";  // empty when it is left out for what it is, or not mounted
};

// One resource limit and what it comes from.
struct PlannedLimit {
  std::string name;  // in lower case, as "numproc"
  std::string soft;  // empty for limits of one value
  std::string hard;
  std::string measured;  // with its unit; empty for fixed limits
  std::string unit;      // "", "pages", "bytes", "KiB"
};

struct Plan {
  std::vector<PlannedExclude> excludes;
  std::vector<MissingMount> missingMounts;
  std::vector<PlannedLimit> limits;
  long long bytes = 0, files = 0;  // to be copied
  bool counted = false;            // file by file; else from the file systems' figures
  std::string distribution;
  std::vector<std::string> addresses;
  std::vector<Finding> findings;  // blocks first, then warnings, then notes
  Verdict verdict = Verdict::ready;
};

// Free space and inodes that a copy should leave, in percent of the copy: a server
// goes on growing while it is copied.
inline constexpr int spaceMarginPercent = 10;

// What will not be copied: what the measurement left out, swap files in use, what
// the administrator named, and what is never copied.
std::vector<PlannedExclude> plannedExcludes(const PlanFacts& facts);

// The patterns among them that a migration must be told.
std::vector<std::string> exclusionPatterns(const PlanFacts& facts);

std::vector<PlannedLimit> plannedLimits(const Measurement& measurement,
                                        const ShellVariables& config);

Plan makePlan(const PlanFacts& facts);

}  // namespace agent

#endif
