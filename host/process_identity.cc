#include "host/process_identity.h"

#include <unistd.h>

#include "host/error.h"
#include "host/file.h"
#include "host/state.h"
#include "host/text.h"

namespace host {
namespace {

std::string bootId() {
  const std::optional<std::string> text = readFile("/proc/sys/kernel/random/boot_id");
  if (!text) failErrno("cannot read /proc/sys/kernel/random/boot_id");
  return text->substr(0, text->find('\n'));
}

std::optional<std::string> statOf(pid_t pid) { return readFile(textf("/proc/%d/stat", pid)); }

/// The letter behind the command name in a /proc/PID/stat text.
char stateOf(const std::string& stat) {
  const size_t nameEnd = stat.rfind(')');
  return nameEnd == stat.npos || nameEnd + 2 >= stat.size() ? '?' : stat[nameEnd + 2];
}

}  // namespace

std::optional<ProcessIdentity> processOf(pid_t pid) {
  const std::optional<std::string> stat = statOf(pid);
  const auto start = stat ? parseStartTime(*stat) : std::nullopt;
  if (!start) return std::nullopt;
  return ProcessIdentity{bootId(), pid, *start};
}

ProcessIdentity thisProcess() {
  const std::optional<ProcessIdentity> process = processOf(getpid());
  if (!process) fail(ExitCode::kFailed, "cannot read /proc/%d/stat: is /proc mounted?", getpid());
  return *process;
}

bool isOfThisBoot(const ProcessIdentity& process) { return process.boot == bootId(); }

bool isAlive(const ProcessIdentity& process) {
  if (!isOfThisBoot(process)) return false;
  const std::optional<std::string> stat = statOf(process.pid);
  if (!stat || parseStartTime(*stat) != process.startTime) return false;
  const char state = stateOf(*stat);
  return state != 'Z' && state != 'X';
}

std::string processWord(const ProcessIdentity& process) {
  return textf("%d.%llu", process.pid, process.startTime);
}

}  // namespace host
