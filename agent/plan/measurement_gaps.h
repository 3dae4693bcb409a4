// What a measurement of this machine has not seen.
#ifndef QX_AGENT_PLAN_MEASUREMENT_GAPS_H
#define QX_AGENT_PLAN_MEASUREMENT_GAPS_H

#include <chrono>
#include <string>
#include <vector>

namespace agent {

// What was counted.
struct Counted {
  unsigned files = 0;  // open ones
  unsigned rules = 0;  // of the firewall, and routes
};

// Warnings for what was counted wrongly: the usual count of open files fails where there
// are very many, and rules and routes are counted by programs that may be missing.
//
// openFiles  as counted another way at about the same time
std::vector<std::string> measurementGaps(const Counted& counted, long long openFiles);

// Descriptors of all processes below `proc`; those that go meanwhile may be missed.
long long countOpenFiles(const std::string& proc = "/proc");

// Mount points of file systems for which a program or another machine answers and has not
// within `patience`, which is one for all of them. Asking leaves a waiting thread behind
// for each.
std::vector<std::string> deadMounts(std::chrono::milliseconds patience);

// Takes these mounts away from the calling thread and the programs that it starts; nobody
// else misses them. Throws std::runtime_error.
void hideMounts(const std::vector<std::string>& mountPoints);

}  // namespace agent

#endif
