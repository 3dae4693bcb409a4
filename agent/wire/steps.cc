#include "agent/wire/steps.h"

#include <algorithm>
#include <iterator>

#include "agent/wire/message_fields.h"

namespace agent {

namespace {

using std::chrono::hours;
using std::chrono::minutes;

// Answers that grow with the server: 400,000 quotas, thousands of mounts.
constexpr size_t kLarge = kMaxFrameBytes;

constexpr Step kSteps[] = {
    {.name = "connect", .text = "reach the server", .asks = true},
    {.name = "identify", .text = "ask which server it is", .longest = minutes(1)},
    // The longest measurement, and time to sum it up.
    {.name = "measure", .text = "measure the server", .longest = hours(25), .frameBytes = kLarge},
    {.name = "survey",
     .text = "look at the server's files",
     .longest = minutes(10),
     .frameBytes = kLarge},
    {.name = "create",
     .text = "open a session",
     .longest = minutes(1),
     .firstWhere = "on the server",
     .secondWhere = "here"},
    {.name = "init",
     .text = "check the parameters",
     .longest = minutes(2),
     .firstWhere = "on the server",
     .secondWhere = "here"},
    {.name = "lockVPS", .text = "lock the container id"},
    {.name = "createDstSrv", .text = "create the container"},
    // Every file is looked at, on disks that may be slow.
    {.name = "getUsageDiskSpace", .text = "measure the server's files"},
    {.name = "getFreeDiskSpace", .text = "measure the node's disk"},
    {.name = "dumpQuota",
     .text = "read the server's disk quotas",
     .longest = hours(2),
     .frameBytes = kLarge},
    {.name = "startRSyncServer", .text = "serve the files, first copy", .longest = minutes(5)},
    {.name = "rSync", .text = "copy the files, services running", .copiesFiles = true},
    // The copy has ended at this end by then.
    {.name = "waitRSyncServer", .text = "end the first copy", .longest = minutes(10)},
    // A database may write for long before it stops.
    {.name = "stopServices", .text = "stop the services", .stopsServices = true},
    {.name = "startRSyncServer2", .text = "serve the files, second copy", .longest = minutes(5)},
    {.name = "rSync2", .text = "copy what has changed", .copiesFiles = true},
    {.name = "waitRSyncServer2", .text = "end the second copy", .longest = minutes(10)},
    {.name = "checkCopy", .text = "see what the second copy left out"},
    {.name = "restoreQuota", .text = "set the container's disk quotas"},
    {.name = "tuneDstSrv", .text = "adapt the copy to a container"},
    {.name = "checkContainer", .text = "see that the container is on the disk"},
    {.name = "verify", .text = "compare the container with the server"},
    {.name = "list", .text = "list the server's files"},
    // Stages that no migration calls, but whoever asks for them.
    {.name = "shutdownSrcSrv", .text = "shut the server down"},
    {.name = "destroySrcSrv", .text = "destroy the server"},
    {.name = "startDstSrv", .text = "start the container"},
    // Services are started again.
    {.name = "finish",
     .text = "finish",
     .longest = minutes(10),
     .firstWhere = "here",
     .secondWhere = "on the server"},
};

constexpr Step kUnknown = {.name = "", .text = ""};

}  // namespace

const Step& stepOf(const std::string& name) {
  const auto* const found = std::find_if(std::begin(kSteps), std::end(kSteps),
                                         [&](const Step& step) { return name == step.name; });
  return found == std::end(kSteps) ? kUnknown : *found;
}

std::string StepTexts::next(const std::string& name) {
  int& times = begun_[name];
  // The end here is not finished when it was never begun.
  if (name == kMethodFinish && begun_[kMethodCreate] < 2) times = 1;
  ++times;
  const Step& step = stepOf(name);
  const char* where = times < 2 ? step.firstWhere : step.secondWhere;
  return where ? std::string(step.text) + " " + where : step.text;
}

}  // namespace agent
