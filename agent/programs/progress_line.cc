#include "agent/programs/progress_line.h"

#include <algorithm>
#include <cmath>

#include "agent/plan/amounts.h"
#include "host/text.h"

namespace agent {

namespace {

using host::textf;

constexpr double kSlowest = 1024;  // bytes a second; below, nobody knows how long it takes

// "1:05", "2:03:04".
std::string clockText(long long seconds) {
  const long long hours = seconds / 3600;
  if (hours > 0) return textf("%lld:%02lld:%02lld", hours, seconds / 60 % 60, seconds % 60);
  return textf("%lld:%02lld", seconds / 60, seconds % 60);
}

std::string copyText(const CopyAmount& copied, long long toCopy) {
  std::string text = bytesText(copied.bytes);
  // What is counted beforehand may be less than what is copied in the end.
  const bool known = toCopy > copied.bytes;
  if (known) text += " of " + bytesText(toCopy);
  text += ", " + bytesText(std::llround(copied.perSecond)) + "/s";
  if (known && copied.perSecond >= kSlowest) {
    const double left = static_cast<double>(toCopy - copied.bytes) / copied.perSecond;
    text += ", " + clockText(std::llround(std::ceil(left))) + " left";
  }
  return text;
}

}  // namespace

std::string progressLine(const Progress& progress, size_t columns) {
  const std::string end =
      progress.outage ? "  services down " + clockText(*progress.outage) : std::string();
  std::string line = textf("%-18s ", progress.stage.c_str());
  if (progress.copied) {
    line += copyText(*progress.copied, progress.toCopy);
  } else if (!progress.percent.empty()) {
    line += progress.percent;
  } else {
    line += progress.text + " ...";
  }
  const size_t room = columns - std::min(columns, end.size());
  if (line.size() > room) line.resize(room);
  return (line + end).substr(0, columns);
}

}  // namespace agent
