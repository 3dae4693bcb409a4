// How much a copy has written so far.
#ifndef QX_AGENT_PROGRAMS_COPY_METER_H
#define QX_AGENT_PROGRAMS_COPY_METER_H

#include <chrono>
#include <deque>
#include <optional>
#include <utility>

namespace agent {

struct CopyAmount {
  long long bytes = 0;   ///< written so far
  double perSecond = 0;  ///< bytes, over the last seconds
};

/// Reads what the rsync programs below this process have written from the kernel's
/// accounts, /proc/PID/io (proc(5), "wchar"): so much for files, and next to nothing for
/// what one end says to the other. Of several the one that has written most counts, as a
/// relay writes the same once more. Not for several threads.
class CopyMeter {
 public:
  using Clock = std::chrono::steady_clock;

  /// Nothing until such a program runs, or where the kernel keeps no accounts. What one
  /// that has ended had written stays.
  std::optional<CopyAmount> read(Clock::time_point now = Clock::now());

 private:
  long long most_ = -1;
  std::deque<std::pair<Clock::time_point, long long>> samples_;
};

}  // namespace agent

#endif
