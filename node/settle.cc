#include "node/settle.h"

#include <chrono>
#include <thread>

#include "host/error.h"
#include "host/state.h"

namespace node {

std::optional<pid_t> settledInit(unsigned id, int seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  for (;;) {
    if (const std::optional<pid_t> init = runningInit(id)) return init;
    const std::optional<pid_t> monitor = runningMonitor(id);
    if (!monitor) return std::nullopt;
    if (Clock::now() >= end) {
      fail(ExitCode::kBusy,
           "the init of container %u has ended, but LXC's monitor of it (process %d) has not, for "
           "%d seconds",
           id, *monitor, seconds);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void refuseRunning(const Container& container, const char* action) {
  if (const std::optional<pid_t> init = settledInit(container.id)) {
    fail(ExitCode::kBusy, "container %u is running (its init is process %d): stop it before you %s",
         container.id, *init, action);
  }
}

}  // namespace node
