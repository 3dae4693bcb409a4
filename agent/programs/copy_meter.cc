#include "agent/programs/copy_meter.h"

#include <algorithm>
#include <fstream>
#include <string>

#include "agent/system/descendants.h"

namespace agent {

namespace {

constexpr std::chrono::seconds kWindow(5);  // of the rate

bool isRsync(pid_t process) {
  std::string name;
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  return std::getline(file, name) && name == "rsync";
}

// -1 where it is not told.
long long writtenBy(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/io");
  std::string name;
  for (long long value = 0; file >> name >> value;) {
    if (name == "wchar:") return value;
  }
  return -1;
}

}  // namespace

std::optional<CopyAmount> CopyMeter::read(Clock::time_point now) {
  for (const pid_t process : descendants()) {
    if (isRsync(process)) most_ = std::max(most_, writtenBy(process));
  }
  if (most_ < 0) return std::nullopt;
  samples_.emplace_back(now, most_);
  while (samples_.size() > 2 && now - samples_.front().first > kWindow) samples_.pop_front();
  CopyAmount amount;
  amount.bytes = most_;
  const std::chrono::duration<double> time = now - samples_.front().first;
  if (time.count() > 0) {
    amount.perSecond = static_cast<double>(most_ - samples_.front().second) / time.count();
  }
  return amount;
}

}  // namespace agent
