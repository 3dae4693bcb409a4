#include "host/reserve.h"

#include <string>

#include "host/error.h"
#include "host/settings.h"
#include "host/text.h"

namespace host {

namespace {

constexpr int kUsual = 5;
// More than this is a slip of the keyboard.
constexpr int kMost = 50;

}  // namespace

int reservePercent(const ShellVars& settings) {
  const std::string text = settingOf(settings, "RESERVE");
  if (text.empty()) return kUsual;
  const std::optional<uint64_t> percent = parseDecimal(text);
  if (!percent || *percent > kMost) {
    fail(ExitCode::kBadConfig, "RESERVE: '%s' is not a percentage from 0 to %d", text.c_str(),
         kMost);
  }
  return static_cast<int>(*percent);
}

}  // namespace host
