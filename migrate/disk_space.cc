#include "migrate/disk_space.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "expand/strings.h"

namespace P2V {

namespace {

constexpr long long kBlock = 1024;
// Figures beyond this are taken for it, so that two of them can be added and counted
// in bytes.
constexpr long long kMostBlocks = LLONG_MAX / kBlock / 2;
constexpr char kBlanks[] = " \t";
constexpr char kDigits[] = "0123456789";

long long blocksAt(const std::string& text, std::size_t at) {
  if (at == std::string::npos) return 0;
  return std::min(std::strtoll(text.c_str() + at, nullptr, 10), kMostBlocks);
}

}  // namespace

DuTotal parseDuTotal(const std::string& output) {
  DuTotal total;
  total.position = output.find_first_of(kDigits);
  total.bytes = blocksAt(output, total.position) * kBlock;
  return total;
}

std::string duCommand(const std::vector<std::string>& patterns) {
  std::string command = "du -s -c ";
  for (const std::string& pattern : patterns) command += " " + pattern;
  return command;
}

long long parseDuGrandTotal(const std::string& output, std::size_t position) {
  std::vector<std::string> lines = Expand::split("\n", output, 0);
  // The end of the last line is no line of its own.
  if (lines.back().empty()) lines.pop_back();
  if (lines.empty()) return 0;
  return blocksAt(lines.back(), lines.back().find_first_of(kDigits, position)) * kBlock;
}

std::string dfDataLine(const std::string& output) {
  const std::vector<std::string> lines = Expand::split("\n", output, 0);
  return lines.size() > 1 ? lines[1] : "";
}

long long parseDfLine(const std::string& line) {
  std::size_t at = 0;
  // From npos every search stays there.
  at = line.find_first_of(kBlanks, at);      // past the file system
  at = line.find_first_not_of(kBlanks, at);  // to the size
  at = line.find_first_of(kBlanks, at);      // past it
  at = line.find_first_of(kDigits, at);
  const long long used = blocksAt(line, at);
  at = line.find_first_of(kBlanks, at);
  at = line.find_first_of(kDigits, at);
  const long long available = blocksAt(line, at);
  return (used + available) * kBlock;
}

}  // namespace P2V
