#include "expand/sleep.h"

#include <cerrno>
#include <ctime>

namespace Expand {

void sleep_full(int seconds) {
  if (seconds <= 0) return;
  // Against a fixed end, so that many signals do not add up to a longer sleep.
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_sec += seconds;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

}  // namespace Expand
