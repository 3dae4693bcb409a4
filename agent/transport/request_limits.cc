#include "agent/transport/request_limits.h"

namespace agent {

namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

// Answers that grow with the server: 400,000 quotas, thousands of mounts.
constexpr size_t kLargeFrame = maxFrameBytes;

struct Row {
  const char* method;
  std::chrono::milliseconds longest;
  size_t frameBytes;
};

const Row kRows[] = {
    {"create", minutes(1), usualFrameBytes},
    {"init", minutes(2), usualFrameBytes},
    {"finish", minutes(1), usualFrameBytes},
    // The longest measurement, and time to sum it up.
    {"measure", hours(25), kLargeFrame},
    {"survey", minutes(10), kLargeFrame},
    // Every file is looked at, on disks that may be slow.
    {"getUsageDiskSpace", hours(24), usualFrameBytes},
    {"dumpQuota", hours(2), kLargeFrame},
    {"startRSyncServer", minutes(5), usualFrameBytes},
    {"startRSyncServer2", minutes(5), usualFrameBytes},
    // The copy has ended at this end by then.
    {"waitRSyncServer", minutes(10), usualFrameBytes},
    {"waitRSyncServer2", minutes(10), usualFrameBytes},
    // A database may write for long before it stops.
    {"stopServices", hours(24), usualFrameBytes},
};

}  // namespace

RequestLimits limitsOf(const std::string& method) {
  RequestLimits limits;
  limits.longest = hours(24);
  for (const Row& row : kRows) {
    if (method != row.method) continue;
    limits.longest = row.longest;
    limits.frameBytes = row.frameBytes;
  }
  return limits;
}

}  // namespace agent
