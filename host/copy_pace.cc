#include "host/copy_pace.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "host/io_priority.h"
#include "host/text.h"

namespace host {

namespace {

constexpr int kNicest = 19;
constexpr int kLastOfItsClass = 7;

std::string valueOf(const char* variable) {
  const char* value = std::getenv(variable);
  return value == nullptr ? "" : value;
}

[[noreturn]] void refuse(const char* variable, const std::string& value, const char* what) {
  throw std::invalid_argument("'" + value + "' in " + variable + " is not " + what);
}

}  // namespace

std::optional<uint64_t> parseRate(std::string_view text) {
  uint64_t unit = 1;
  if (!text.empty()) {
    const size_t power = std::string_view("KMG").find(static_cast<char>(text.back() & ~0x20));
    if (power != std::string_view::npos) {
      unit = uint64_t{1} << (10 * power);
      text.remove_suffix(1);
    }
  }
  const std::optional<uint64_t> number = parseDecimal(text);
  if (!number || *number == 0 || *number > kMostKibPerSecond / unit) return std::nullopt;
  return *number * unit;
}

CopyPace paceFromEnvironment() {
  CopyPace pace;
  const std::string limit = valueOf(kBandwidthVariable);
  if (!limit.empty()) {
    const std::optional<uint64_t> number = parseDecimal(limit);
    if (!number || *number > kMostKibPerSecond)
      refuse(kBandwidthVariable, limit, "a number of KiB per second");
    pace.kibPerSecond = *number;
  }
  const std::string nice = valueOf(kNiceVariable);
  if (!nice.empty() && nice != "0" && nice != "1") refuse(kNiceVariable, nice, "0 or 1");
  pace.yields = nice == "1";
  return pace;
}

void announcePace(const CopyPace& pace) {
  if (pace.kibPerSecond > 0)
    setenv(kBandwidthVariable, std::to_string(pace.kibPerSecond).c_str(), 1);
  if (pace.yields) setenv(kNiceVariable, "1", 1);
}

CopyPace slowerOf(const CopyPace& one, const CopyPace& other) {
  CopyPace slower;
  slower.yields = one.yields || other.yields;
  slower.kibPerSecond = one.kibPerSecond == 0     ? other.kibPerSecond
                        : other.kibPerSecond == 0 ? one.kibPerSecond
                                                  : std::min(one.kibPerSecond, other.kibPerSecond);
  return slower;
}

void stepBack(const CopyPace& pace) {
  const int disks =
      pace.yields ? ioPriority(kIoClassIdle, 0) : ioPriority(kIoClassBestEffort, kLastOfItsClass);
  syscall(SYS_ioprio_set, kIoPriorityOfProcess, 0, disks);
  if (pace.yields) setpriority(PRIO_PROCESS, 0, kNicest);
}

}  // namespace host
