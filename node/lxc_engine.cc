#include "node/lxc_engine.h"

#include <lxc/lxccontainer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/interfaces.h"
#include "host/paths.h"
#include "host/state.h"
#include "host/text.h"
#include "node/adapt.h"
#include "node/lxc_config.h"
#include "node/lxc_handle.h"
#include "node/private_area.h"
#include "node/resources.h"
#include "node/storage.h"

namespace node {
namespace {

constexpr int kKillSeconds = 30;
constexpr int kAskAgainSeconds = 2;

std::string recordPath(unsigned id) { return textf("%s/%u.init", kRunDir, id); }

std::string logPath(unsigned id) { return lxcDirectory() + "/" + lxcName(id) + "/log"; }

/// The last complaints in LXC's log of this start, its only place for them.
std::string lastComplaints(unsigned id) {
  constexpr size_t kLines = 5;
  std::vector<std::string> complaints;
  const std::string log = readFile(logPath(id)).value_or("");
  for (const std::string_view line : splitLines(log)) {
    const size_t at = line.find(" ERROR ");
    if (at == line.npos) continue;
    const size_t text = line.find(" - ", at);
    complaints.emplace_back(text == line.npos ? line : line.substr(text + 3));
  }
  std::string joined;
  for (size_t i = complaints.size() - std::min(kLines, complaints.size()); i < complaints.size();
       ++i) {
    joined += (joined.empty() ? "" : "; ") + complaints[i];
  }
  return joined.empty() ? "see " + logPath(id) : joined;
}

void requireBridge(const Container& container) {
  if (interfacesOf(container).empty()) return;
  const std::string bridge = valueOf(container.vars, "BRIDGE", kDefaultBridge);
  if (!isDirectory("/sys/class/net/" + bridge + "/bridge")) {
    fail(ExitCode::kFailed,
         "the host has no bridge '%s' for the interfaces of container %u: make it, or set BRIDGE "
         "in %s",
         bridge.c_str(), container.id, kHostConfig);
  }
}

void configure(const LxcHandle& lxc, const Container& container) {
  const std::string directory = lxcDirectory() + "/" + lxcName(container.id);
  makeDirectories(directory);
  if (!exists(kLxcCommonConfig)) {
    fail(ExitCode::kFailed, "LXC's shared configuration %s is missing", kLxcCommonConfig);
  }
  lxc->clear_config(lxc.get());
  unlink(logPath(container.id).c_str());
  LxcItems items = lxcItems(container, readHostFacts());
  items.emplace_back("lxc.log.file", logPath(container.id));
  items.emplace_back("lxc.log.level", "ERROR");
  std::string shown = "# Derived at each start: changes here have no effect.\n";
  for (const auto& [key, value] : items) {
    shown += key + " = " + value + "\n";
    if (!lxc->set_config_item(lxc.get(), key.c_str(), value.c_str())) {
      fail(ExitCode::kFailed, "LXC does not accept '%s = %s'", key.c_str(), value.c_str());
    }
  }
  replaceFile(directory + "/derived.conf", shown, 0644);
}

/// Programs inside that tell a guest's init to shut down, where no signal does.
void askInit(const Container& container) {
  for (const char* program : {"/sbin/openrc-shutdown", "/sbin/telinit", "/sbin/init"}) {
    std::vector<std::string> command{program, "0"};
    if (strcmp(program, "/sbin/openrc-shutdown") == 0) command = {program, "-p", "now"};
    try {
      if (execInContainer(container, command) == 0) return;
    } catch (const Error&) {
      // It has ended meanwhile, or is about to.
      return;
    }
  }
}

void unmountQuietly(const Container& container) {
  try {
    if (isMounted(container) || treeIsMounted(container.privateArea)) umountContainer(container);
  } catch (const Error& error) {
    fprintf(stderr, "qxctl: warning: %s\n", error.what());
  }
}

}  // namespace

Outcome startContainer(const Container& container) {
  if (runningInit(container.id)) return Outcome::kAlready;
  if (!registration(container)) {
    fail(ExitCode::kNotRegistered,
         "container %u is not registered: fill its private area, then 'qxctl convert %u'",
         container.id, container.id);
  }
  requireBridge(container);
  adaptIfChanged(container);
  const std::optional<IdMap> map = idMapOf(container);
  if (map) requireSetAside(*map);
  const bool wasMounted = mountContainer(container) == Outcome::kAlready;
  try {
    if (map) mountMapped(container.root, *map);
    const LxcHandle lxc = openLxc(container.id);
    configure(lxc, container);
    lxc->want_daemonize(lxc.get(), true);
    lxc->want_close_all_fds(lxc.get(), true);
    if (!lxc->start(lxc.get(), 0, nullptr)) {
      fail(ExitCode::kFailed, "container %u does not start: %s", container.id,
           lastComplaints(container.id).c_str());
    }
  } catch (const Error&) {
    unlink(recordPath(container.id).c_str());
    // A mount with mapped owners is of no use to anyone else.
    if (!wasMounted || map) unmountQuietly(container);
    throw;
  }
  return Outcome::kDone;
}

Outcome stopContainer(const Container& container, int timeoutSeconds) {
  Outcome outcome = Outcome::kAlready;
  if (runningInit(container.id)) {
    outcome = Outcome::kDone;
    const LxcHandle lxc = openLxc(container.id);
    bool stopped = false;
    // An init that has only just begun is deaf, so it is asked more than once.
    for (int left = timeoutSeconds; left > 0 && !stopped; left -= kAskAgainSeconds) {
      const int patience = std::min(left, kAskAgainSeconds);
      if (haltSignal(container).empty()) {
        askInit(container);
        stopped = lxc->wait(lxc.get(), "STOPPED", patience);
      } else {
        stopped = lxc->shutdown(lxc.get(), patience);
      }
    }
    if (!stopped && lxc->is_running(lxc.get()) &&
        (!lxc->stop(lxc.get()) || !lxc->wait(lxc.get(), "STOPPED", kKillSeconds))) {
      fail(ExitCode::kFailed, "container %u does not stop", container.id);
    }
  }
  unlink(recordPath(container.id).c_str());
  const std::string directory = lxcDirectory() + "/" + lxcName(container.id);
  unlink(logPath(container.id).c_str());
  unlink((directory + "/derived.conf").c_str());
  rmdir(directory.c_str());
  unmountQuietly(container);
  return outcome;
}

std::vector<std::string> applyLimits(const Container& container) {
  std::vector<std::string> refused;
  const LxcHandle lxc = openLxc(container.id);
  for (const Limit& limit : planResources(container, readCgroupLayout()).limits) {
    // "lxc.cgroup.pids.max" is the file "pids.max". Other keys count at start.
    const size_t name = limit.key.find('.', strlen("lxc."));
    if (!limit.key.starts_with("lxc.cgroup")) continue;
    if (!lxc->set_cgroup_item(lxc.get(), limit.key.c_str() + name + 1, limit.value.c_str())) {
      refused.push_back(limit.key + " = " + limit.value);
    }
  }
  return refused;
}

void runHook(const std::string& name, const std::string& type) {
  if (!name.starts_with("qx-"))
    fail(ExitCode::kUsage, "'%s' is not a container of this node", name.c_str());
  const unsigned id = parseCtid(name.substr(3));
  if (type == "post-stop") {
    unlink(recordPath(id).c_str());
    return;
  }
  if (type != "start-host") fail(ExitCode::kUsage, "unknown hook '%s'", type.c_str());
  const char* pid = getenv("LXC_PID");
  if (pid == nullptr) fail(ExitCode::kUsage, "LXC_PID is not set");
  const std::optional<std::string> stat = readFile(textf("/proc/%s/stat", pid));
  const std::optional<unsigned long long> start =
      stat ? parseStartTime(*stat) : std::optional<unsigned long long>();
  if (!start) fail(ExitCode::kFailed, "cannot find process %s", pid);
  makeDirectories(kRunDir);
  replaceFile(recordPath(id), textf("%s %llu\n", pid, *start), 0644);
}

}  // namespace node
