#include "share/engine/idle_share.h"

#include <fstream>
#include <sstream>

namespace engine {

namespace {

// The columns of the line "cpu": user, nice, system, idle, iowait, irq, softirq, steal. What
// follows is counted in the first two.
constexpr int kColumns = 8;
constexpr int kIdle = 3;
constexpr int kWaiting = 4;

}  // namespace

IdleShare::IdleShare() { next(); }

double IdleShare::next() {
  std::ifstream file("/proc/stat");
  std::string line;
  std::getline(file, line);
  return next(line);
}

double IdleShare::next(const std::string& text) {
  std::istringstream words(text);
  std::string name;
  words >> name;
  std::uint64_t idle = 0;
  std::uint64_t total = 0;
  std::uint64_t ticks = 0;
  for (int column = 0; column < kColumns && words >> ticks; ++column) {
    total += ticks;
    if (column == kIdle || column == kWaiting) idle += ticks;
  }
  const std::uint64_t passed = total - total_;
  const std::uint64_t unused = idle - idle_;
  const bool known = name == "cpu" && total > total_ && idle >= idle_ && unused <= passed;
  total_ = total;
  idle_ = idle;
  return known ? static_cast<double>(unused) / static_cast<double>(passed) : 1;
}

}  // namespace engine
