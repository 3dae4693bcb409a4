#include "host/state.h"

#include <limits>

#include "host/file.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/text.h"

namespace host {

std::optional<InitRecord> parseInitRecord(std::string_view text) {
  const std::vector<std::string_view> words = splitWords(text);
  if (words.size() != 2) return std::nullopt;
  const std::optional<uint64_t> pid = parseDecimal(words[0]);
  const std::optional<uint64_t> start = parseDecimal(words[1]);
  if (!pid || !start || *pid == 0 || *pid > std::numeric_limits<pid_t>::max()) return std::nullopt;
  return InitRecord{static_cast<pid_t>(*pid), *start};
}

std::optional<unsigned long long> parseStartTime(std::string_view stat) {
  const size_t nameEnd = stat.rfind(')');
  if (nameEnd == stat.npos) return std::nullopt;
  const std::vector<std::string_view> words = splitWords(stat.substr(nameEnd + 1));
  constexpr size_t kStartTime = 22 - 3;  // The first word after the name is field 3.
  if (words.size() <= kStartTime) return std::nullopt;
  return parseDecimal(words[kStartTime]);
}

std::optional<pid_t> runningInit(unsigned id) {
  const std::optional<std::string> text = readFile(textf("%s/%u.init", kRunDir, id));
  if (!text) return std::nullopt;
  const std::optional<InitRecord> record = parseInitRecord(*text);
  if (!record) return std::nullopt;
  const std::optional<std::string> stat = readFile(textf("/proc/%d/stat", record->pid));
  if (!stat || parseStartTime(*stat) != record->startTime) return std::nullopt;
  return record->pid;
}

bool isMounted(const Container& container) {
  return countMountsAt(mountPoints(), container.root) > 0;
}

bool hasPrivateArea(const Container& container) { return isDirectory(container.privateArea); }

}  // namespace host
