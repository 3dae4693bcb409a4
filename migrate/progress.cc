#include "migrate/progress.h"

#include <cstdio>

namespace P2V {

namespace {

constexpr std::time_t kQuietSeconds = 20;

}  // namespace

std::optional<int> scanProgressLine(const char* line) {
  int percent = 0;
  int position = 0;
  // The position is only set when the text up to "|" was found as well.
  if (std::sscanf(line, "%*s%d%% |%n", &percent, &position) != 1 || position == 0) return {};
  return percent;
}

std::optional<int> ProgressThrottle::accept(const char* line, std::time_t now) {
  if (lastTime_ <= now && now < lastTime_ + kQuietSeconds) return {};
  const std::optional<int> percent = scanProgressLine(line);
  if (!percent || *percent == lastPercent_) return {};
  lastPercent_ = *percent;
  lastTime_ = now;
  if (*percent == 0) return {};
  return percent;
}

}  // namespace P2V
