#include "host/reserve.h"

#include <charconv>
#include <string>

#include "host/error.h"
#include "host/settings.h"

namespace host {

namespace {

constexpr int kUsual = 5;
// More than this is a slip of the keyboard.
constexpr int kMost = 50;

}  // namespace

int reservePercent(const ShellVars& settings) {
  const std::string text = settingOf(settings, "RESERVE");
  if (text.empty()) return kUsual;
  int percent = -1;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, percent);
  if (error != std::errc() || stop != end || percent < 0 || percent > kMost) {
    fail(ExitCode::kBadConfig, "RESERVE: '%s' is not a number of percent from 0 to %d",
         text.c_str(), kMost);
  }
  return percent;
}

}  // namespace host
