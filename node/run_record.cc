#include "node/run_record.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/state.h"
#include "host/text.h"
#include "node/host.h"

namespace node {
namespace {

std::string statOf(pid_t pid) {
  const std::optional<std::string> stat = readFile(textf("/proc/%d/stat", pid));
  if (!stat) fail(ExitCode::kFailed, "cannot find process %d", pid);
  return *stat;
}

void record(unsigned id, const char* kind, pid_t pid) {
  const std::optional<unsigned long long> start = parseStartTime(statOf(pid));
  if (!start) fail(ExitCode::kFailed, "cannot find out when process %d was started", pid);
  replaceFile(runRecordPath(id, kind), textf("%d %llu\n", pid, *start), 0644);
}

}  // namespace

std::string lxcName(unsigned id) { return textf("qx-%u", id); }

std::string lxcDirectory() { return std::string(kRunDir) + "/lxc"; }

std::string lxcPlace(unsigned id, const char* name) {
  return lxcDirectory() + "/" + lxcName(id) + "/" + name;
}

void recordRun(unsigned id, pid_t init) {
  makeDirectories(kRunDir);
  const std::optional<pid_t> monitor = parseParent(statOf(init));
  // First of all the one that is still there when the init has ended.
  if (monitor && *monitor > 0) record(id, kMonitorRecord, *monitor);
  record(id, kInitRecord, init);
}

void forgetInit(unsigned id) { unlink(runRecordPath(id, kInitRecord).c_str()); }

void forgetRun(unsigned id) {
  forgetInit(id);
  unlink(runRecordPath(id, kMonitorRecord).c_str());
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(lxcPlace(id, ""), ignored)) {
    const std::string name = entry.path().filename();
    if (name == kLxcLog || name.starts_with(kConsoleLog)) continue;
    // What stays there is in nobody's way.
    std::filesystem::remove_all(entry.path(), ignored);
  }
}

void forgetLogs(unsigned id) {
  std::error_code ignored;
  std::filesystem::remove_all(lxcPlace(id, ""), ignored);
}

}  // namespace node
