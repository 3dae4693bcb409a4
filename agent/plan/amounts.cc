#include "agent/plan/amounts.h"

#include <cstdio>
#include <iterator>

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

}  // namespace agent
