// A server's measurement and what was computed from it, as it travels.
#ifndef QX_AGENT_PLAN_MEASUREMENT_H
#define QX_AGENT_PLAN_MEASUREMENT_H

#include <string>
#include <vector>

namespace agent {

struct MeasureSettings {
  long long duration = 5;  ///< seconds; 0 for one sample
  long long interval = 1;  ///< seconds
  double procScale = 1.0;  ///< of process, socket, memory and lock limits
  double diskScale = 1.0;  ///< of disk limits
};

struct MeasuredExclude {
  std::string path;      ///< or a pattern
  bool decided = false;  ///< left out by decision; false where there is nothing to copy
};

struct MeasureWarning {
  int code = 0;
  std::string text;
};

/// The figures have the names and units of the calculator's record: pages,
/// 1024-byte blocks, counts.
struct Measurement {
  unsigned numproc = 0;
  double avnumproc = 0;
  unsigned numtcpsock = 0, numothersock = 0, numfile = 0;
  unsigned privvmpages = 0, lockedpages = 0, shmpages = 0;
  unsigned numflock = 0, numiptent = 0;
  unsigned diskspace = 0, diskinodes = 0;
  unsigned quotaugidlimit = 0;
  unsigned pageSize = 4096;  ///< bytes
  std::string distribution;
  std::string hostname;
  std::vector<std::string> addresses, nameservers, searchDomains;
  std::vector<MeasureWarning> warnings;
  std::vector<std::string> notes;  ///< what was done to the figures, for people
  std::vector<MeasuredExclude> excludes;
  std::string config;  ///< the computed configuration, NAME="value" lines
};

/// Measures this machine with the plug-in's calculator, telling the current
/// request's context how far it is. Throws std::runtime_error when there is no
/// plug-in, the settings make no sense or a measurement fails.
Measurement measureHere(const MeasureSettings& settings);

}  // namespace agent

#endif
