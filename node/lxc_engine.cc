#include "node/lxc_engine.h"

#include <lxc/lxccontainer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/interfaces.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/place.h"
#include "host/state.h"
#include "host/text.h"
#include "node/adapt.h"
#include "node/confinement.h"
#include "node/left_groups.h"
#include "node/limits.h"
#include "node/lxc_config.h"
#include "node/lxc_handle.h"
#include "node/private_area.h"
#include "node/resources.h"
#include "node/run_record.h"
#include "node/settle.h"
#include "node/storage.h"

namespace node {
namespace {

constexpr int kKillSeconds = 30;
constexpr int kAskAgainSeconds = 2;
constexpr int kLeaveSeconds = 10;

std::string logPath(unsigned id) { return lxcPlace(id, kLxcLog); }

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

void requireArea(const Container& container) {
  if (hasPrivateArea(container)) return;
  requireMounted(container.privateArea);
  fail(ExitCode::kNotFound,
       "container %u has no private area: 'qxctl create %u' makes one from the OS template that "
       "OSTEMPLATE names; there is no directory %s",
       container.id, container.id, container.privateArea.c_str());
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
  for (const char* shared : {kLxcCommonConfig, kLxcSeccomp}) {
    if (exists(shared)) continue;
    fail(ExitCode::kFailed, "LXC's shared configuration %s is missing", shared);
  }
  makeDirectories(lxcDirectory() + "/" + lxcName(container.id));
  replaceFile(lxcPlace(container.id, kSeccompFile),
              withoutMountCalls(readFile(kLxcSeccomp).value_or("")), 0600);
  const std::string console = lxcPlace(container.id, kConsoleLog);
  for (const std::string& earlier : {logPath(container.id), console, console + kOlder}) {
    unlink(earlier.c_str());
  }
  // The log comes first, to have what LXC says of the rest.
  LxcItems items{{"lxc.log.file", logPath(container.id)}, {"lxc.log.level", "ERROR"}};
  const LxcItems rest = lxcItems(container, readHostFacts(container));
  items.insert(items.end(), rest.begin(), rest.end());
  // LXC takes a container for a defined one, with a profile of AppArmor and a place of
  // its own, only when its configuration came from a file. Under this name, LXC's own
  // tools find it too.
  const std::string path = lxcPlace(container.id, "config");
  replaceFile(
      path, "# Derived at each start: changes here have no effect.\n" + lxcConfigText(items), 0600);
  lxc->clear_config(lxc.get());
  if (!lxc->load_config(lxc.get(), path.c_str())) {
    fail(ExitCode::kFailed, "LXC does not accept the configuration %s of container %u: %s",
         path.c_str(), container.id, lastComplaints(container.id).c_str());
  }
}

/// Programs inside that tell a guest's init to shut down, where no signal does.
void askInit(const Container& container) {
  for (const char* program : {"/sbin/openrc-shutdown", "/sbin/telinit", "/sbin/init"}) {
    std::vector<std::string> command{program, "0"};
    if (program == std::string_view("/sbin/openrc-shutdown")) command = {program, "-p", "now"};
    try {
      if (execInContainer(container, command) == 0) return;
    } catch (const Error&) {
      // It has ended meanwhile, or is about to.
      return;
    }
  }
}

/// After a start that failed: LXC's monitor may still be leaving the mounts, and may not
/// have come as far as being recorded.
void unmountQuietly(const Container& container) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(kLeaveSeconds);
  for (;;) {
    try {
      if (isMounted(container) || treeIsMounted(container.privateArea)) umountContainer(container);
      return;
    } catch (const Error& error) {
      if (error.code() != ExitCode::kBusy || Clock::now() >= end) {
        fprintf(stderr, "qxctl: warning: %s\n", error.what());
        return;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace

Outcome startContainer(const Container& container) {
  if (settledInit(container.id)) return Outcome::kAlready;
  requireArea(container);
  if (!registration(container)) {
    fail(ExitCode::kNotRegistered,
         "container %u is not registered: fill its private area, then 'qxctl convert %u'",
         container.id, container.id);
  }
  requireBridge(container);
  adaptIfChanged(container);
  const std::optional<IdMap> map = idMapOf(container);
  if (map) requireSetAside(*map);
  clearGroups(container.id);
  // Still mounted by a run that ended itself, or by hand.
  if (growsWhenMounted(container)) umountContainer(container);
  const bool wasMounted = mountContainer(container) == Outcome::kAlready;
  try {
    if (map) {
      mountMapped(container.root, makeUserNamespace(*map));
      letPass(container.root, map->first);
    }
    const LxcHandle lxc = openLxc(container.id);
    configure(lxc, container);
    lxc->want_daemonize(lxc.get(), true);
    lxc->want_close_all_fds(lxc.get(), true);
    if (!lxc->start(lxc.get(), 0, nullptr)) {
      fail(ExitCode::kFailed, "container %u does not start: %s", container.id,
           lastComplaints(container.id).c_str());
    }
  } catch (const Error&) {
    // A mount with mapped owners is of no use to anyone else.
    if (!wasMounted || map) unmountQuietly(container);
    forgetRun(container.id);
    throw;
  }
  return Outcome::kDone;
}

Outcome stopContainer(const Container& container, int timeoutSeconds) {
  Outcome outcome = Outcome::kAlready;
  if (settledInit(container.id)) {
    outcome = Outcome::kDone;
    const LxcHandle lxc = openLxc(container.id);
    bool stopped = false;
    // An init that has only just begun is deaf, so it is asked more than once.
    for (int left = timeoutSeconds; left > 0 && !stopped; left -= kAskAgainSeconds) {
      const int seconds = std::min(left, kAskAgainSeconds);
      if (haltSignal(container).empty()) {
        askInit(container);
        stopped = lxc->wait(lxc.get(), "STOPPED", seconds);
      } else {
        stopped = lxc->shutdown(lxc.get(), seconds);
      }
    }
    if (!stopped && lxc->is_running(lxc.get()) &&
        (!lxc->stop(lxc.get()) || !lxc->wait(lxc.get(), "STOPPED", kKillSeconds))) {
      fail(ExitCode::kFailed, "container %u does not stop", container.id);
    }
  }
  // LXC calls a container stopped while its monitor has yet to leave its mounts.
  if (const std::optional<pid_t> init = settledInit(container.id)) {
    fail(ExitCode::kBusy, "container %u was started again (its init is process %d)", container.id,
         *init);
  }
  forgetRun(container.id);
  clearGroups(container.id);
  if (isMounted(container) || treeIsMounted(container.privateArea)) umountContainer(container);
  return outcome;
}

std::vector<Limit> applyLimits(const Container& container) {
  std::vector<Limit> refused;
  const std::optional<pid_t> init = runningInit(container.id);
  if (!init) return refused;
  const CgroupLayout layout = readCgroupLayout();
  for (const Limit& limit : planResources(container, layout).limits) {
    if (!setLimit(layout, container.id, *init, limit)) refused.push_back(limit);
  }
  return refused;
}

void runHook(const std::string& name, const std::string& type) {
  if (!name.starts_with("qx-"))
    fail(ExitCode::kUsage, "'%s' is not a container of this node", name.c_str());
  const unsigned id = parseCtid(name.substr(3));
  if (type == "post-stop") {
    forgetInit(id);
    return;
  }
  if (type == "pre-mount") {
    setHarmless(findContainer(id).root, false);
    return;
  }
  if (type != "start-host") fail(ExitCode::kUsage, "unknown hook '%s'", type.c_str());
  const char* pid = getenv("LXC_PID");
  if (pid == nullptr) fail(ExitCode::kUsage, "LXC_PID is not set");
  const std::optional<uint64_t> init = parseDecimal(pid);
  if (!init) fail(ExitCode::kUsage, "LXC_PID is '%s': a number is expected", pid);
  recordRun(id, static_cast<pid_t>(*init));
}

}  // namespace node
