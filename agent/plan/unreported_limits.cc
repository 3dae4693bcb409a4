#include "agent/plan/unreported_limits.h"

#include <string>

#include "host/error.h"
#include "host/process.h"

namespace agent {

namespace {

constexpr char kQxquota[] = "/usr/sbin/qxquota";
constexpr long long kLargestId = 4294967294;

bool isPlausible(const OwnerLimits& limits) {
  return limits.id >= 0 && limits.id <= kLargestId && limits.blockSoft >= 0 &&
         limits.blockHard >= 0 && limits.inodeSoft >= 0 && limits.inodeHard >= 0;
}

}  // namespace

void addUnreportedLimits(long long ctid, const std::vector<OwnerLimits>& unreported,
                         const std::function<void(const std::string&)>& say) {
  size_t added = 0, refused = 0;
  std::string problem;
  for (const OwnerLimits& limits : unreported) {
    if (!isPlausible(limits)) continue;
    if (added + refused == kMostUnreported) break;
    try {
      host::runProgram({kQxquota, "setlimit2", std::to_string(ctid), limits.group ? "-g" : "-u",
                        std::to_string(limits.id), std::to_string(limits.blockSoft),
                        std::to_string(limits.blockHard), std::to_string(limits.inodeSoft),
                        std::to_string(limits.inodeHard)});
      ++added;
    } catch (const host::Error& error) {
      ++refused;
      problem = error.what();
    }
  }
  if (added > 0) {
    say("The limits of " + std::to_string(added) +
        " users and groups that the server's report leaves out were added.");
  }
  if (refused > 0) {
    say("The limits of " + std::to_string(refused) +
        " users and groups could not be added: " + problem);
  }
}

}  // namespace agent
