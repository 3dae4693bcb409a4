#include "agent/plan/amounts.h"

#include <cstdio>
#include <iterator>

#include "host/resources.h"

namespace agent {

std::string bytesText(long long bytes) {
  static const char* const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes > -1024 && bytes < 1024) return std::to_string(bytes) + " bytes";
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while ((value >= 1024 || value <= -1024) && unit + 1 < std::size(units)) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
  return text;
}

std::string countText(long long count) {
  std::string text = std::to_string(count);
  const size_t first = text[0] == '-' ? 1 : 0;
  for (size_t at = text.size(); at > first + 3;) {
    at -= 3;
    text.insert(at, 1, ',');
  }
  return text;
}

std::string amountText(uint64_t amount, std::string_view unit) {
  if (amount >= host::kUnlimited) return "unlimited";
  const auto number = static_cast<long long>(amount);
  if (unit == "bytes") return bytesText(number);
  if (unit == "KiB") return bytesText(number > (1LL << 52) ? number : number * 1024);
  return countText(number);
}

std::string periodText(long long seconds) {
  constexpr struct {
    long long seconds;
    const char* name;
  } kUnits[] = {{86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}};
  std::string text;
  for (const auto& unit : kUnits) {
    const long long count = seconds / unit.seconds;
    if (count <= 0) continue;
    seconds %= unit.seconds;
    text +=
        (text.empty() ? "" : " ") + countText(count) + " " + unit.name + (count == 1 ? "" : "s");
  }
  return text.empty() ? "0 seconds" : text;
}

}  // namespace agent
