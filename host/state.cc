#include "host/state.h"

#include <limits>

#include "host/file.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/text.h"

namespace host {

std::optional<ProcessRecord> parseProcessRecord(std::string_view text) {
  const std::vector<std::string_view> words = splitWords(text);
  if (words.size() != 2) return std::nullopt;
  const std::optional<uint64_t> pid = parseDecimal(words[0]);
  const std::optional<uint64_t> start = parseDecimal(words[1]);
  if (!pid || !start || *pid == 0 || *pid > std::numeric_limits<pid_t>::max()) return std::nullopt;
  return ProcessRecord{static_cast<pid_t>(*pid), *start};
}

namespace {

/// A number of a /proc/PID/stat text. Fields count from 1; the name is field 2.
std::optional<uint64_t> parseField(std::string_view stat, size_t field) {
  const size_t nameEnd = stat.rfind(')');
  if (nameEnd == stat.npos) return std::nullopt;
  const std::vector<std::string_view> words = splitWords(stat.substr(nameEnd + 1));
  if (words.size() <= field - 3) return std::nullopt;
  return parseDecimal(words[field - 3]);
}

/// The process of a record, if it lives.
std::optional<pid_t> recorded(unsigned id, const char* kind) {
  const std::optional<std::string> text = readFile(runRecordPath(id, kind));
  if (!text) return std::nullopt;
  const std::optional<ProcessRecord> record = parseProcessRecord(*text);
  if (!record) return std::nullopt;
  const std::optional<std::string> stat = readFile(textf("/proc/%d/stat", record->pid));
  if (!stat || parseStartTime(*stat) != record->startTime) return std::nullopt;
  return record->pid;
}

}  // namespace

std::string runRecordPath(unsigned id, const char* kind) {
  return textf("%s/%u.%s", kRunDir, id, kind);
}

std::optional<unsigned long long> parseStartTime(std::string_view stat) {
  return parseField(stat, 22);
}

std::optional<pid_t> parseParent(std::string_view stat) {
  const std::optional<uint64_t> pid = parseField(stat, 4);
  if (!pid || *pid > std::numeric_limits<pid_t>::max()) return std::nullopt;
  return static_cast<pid_t>(*pid);
}

std::optional<pid_t> runningInit(unsigned id) { return recorded(id, kInitRecord); }

std::optional<pid_t> runningMonitor(unsigned id) { return recorded(id, kMonitorRecord); }

bool isRunning(unsigned id) { return runningInit(id) || runningMonitor(id); }

bool isMounted(const Container& container) {
  return countMountsAt(mountPoints(), container.root) > 0;
}

bool hasPrivateArea(const Container& container) { return isDirectory(container.privateArea); }

}  // namespace host
