#include "hwcalc/command_output.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

#include "expand/strings.h"

namespace hwcalc {

namespace {

constexpr char kDigits[] = "0123456789";
constexpr char kBlanks[] = " \t";

std::int32_t clamped(long long number) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<long long>(number, Limits::min(), Limits::max()));
}

// The number that starts at the first digit from `from` on; 0 when there is none.
long long numberFrom(const std::string& text, std::size_t from) {
  const std::size_t digit = text.find_first_of(kDigits, from);
  return digit == std::string::npos ? 0 : std::strtoll(text.c_str() + digit, nullptr, 10);
}

long long usedIn(const std::string& line) {
  std::size_t at = line.find_first_of(kBlanks);
  at = line.find_first_not_of(kBlanks, at);
  at = line.find_first_of(kBlanks, at);
  return numberFrom(line, at);
}

}  // namespace

std::int32_t readCount(const std::string& output) {
  std::string text = output;
  Expand::collapse(text);
  return clamped(std::strtoll(text.c_str(), nullptr, 10));
}

std::int32_t readAllocatedPages(const std::string& ipcsOutput) {
  const std::size_t label = ipcsOutput.find("pages allocated");
  return clamped(numberFrom(ipcsOutput, label));
}

std::int32_t sumUsed(const std::string& dfOutput) {
  const std::vector<std::string> lines = Expand::split("\n", dfOutput, 0);
  long long sum = 0;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    // Kept in the range of the result at each step, so that no sum overflows.
    sum = clamped(sum + clamped(usedIn(lines[i])));
  }
  return static_cast<std::int32_t>(sum);
}

}  // namespace hwcalc
