#include "node/lxc_config.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/interfaces.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/text.h"
#include "node/cgroups.h"
#include "node/confinement.h"
#include "node/resources.h"
#include "node/run_record.h"

namespace node {
namespace {

/// The name of the program that /sbin/init of the tree leads to.
std::string initProgram(const Container& container) {
  const Fd root(open(container.tree().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root) return {};
  const Fd program = openInRoot(root.get(), "/sbin/init", O_PATH);
  if (!program) return {};
  char target[PATH_MAX];
  const ssize_t length =
      readlink(textf("/proc/self/fd/%d", program.get()).c_str(), target, sizeof target);
  const std::string path(target, length > 0 ? static_cast<size_t>(length) : 0);
  return path.substr(path.rfind('/') + 1);
}

void addNetwork(LxcItems& items, const Container& container) {
  const std::string bridge = valueOf(container.vars, "BRIDGE", kDefaultBridge);
  const std::vector<Interface> interfaces = interfacesOf(container);
  // The container has a network of its own in any case.
  if (interfaces.empty()) items.emplace_back("lxc.net.0.type", "empty");
  for (size_t i = 0; i < interfaces.size(); ++i) {
    const auto put = [&](const char* key, const std::string& value) {
      items.emplace_back(textf("lxc.net.%zu.%s", i, key), value);
    };
    put("type", "veth");
    put("link", bridge);
    put("flags", "up");
    put("name", interfaces[i].name);
    put("veth.pair", interfaces[i].hostName);
    if (!interfaces[i].mac.empty()) put("hwaddr", interfaces[i].mac);
  }
}

/// What is written to the console is kept, and no more of it than this twice.
void addConsole(LxcItems& items, unsigned id) {
  items.emplace_back("lxc.console.logfile", lxcPlace(id, kConsoleLog));
  items.emplace_back("lxc.console.size", "256KB");
  items.emplace_back("lxc.console.rotate", "1");
}

void addSecurity(LxcItems& items, const Container& container, const HostFacts& facts) {
  items.emplace_back("lxc.include", kLxcCommonConfig);
  const std::optional<IdMap> map = idMapOf(container);
  if (map) {
    items.emplace_back("lxc.include", kLxcUserNamespaceConfig);
    for (const char kind : {'u', 'g'}) {
      items.emplace_back("lxc.idmap", textf("%c 0 %u %u", kind, map->first, map->count));
    }
    // It gives back what even root of a user namespace has no business with, and
    // what guests take for leave to mount file systems of the host's kernel.
    items.emplace_back("lxc.cap.drop", "mac_admin mac_override sys_time sys_module sys_rawio");
  }
  if (!map) items.emplace_back("lxc.seccomp.profile", lxcPlace(container.id, kSeccompFile));
  if (facts.appArmor) {
    items.emplace_back("lxc.apparmor.profile", "generated");
    // Nesting allows every mount of /proc and /sys, which root of a user namespace may
    // well have: its /proc and /sys obey the namespace.
    if (map) {
      items.emplace_back("lxc.apparmor.allow_nesting", "1");
    } else {
      for (const std::string& rule : mountRules()) items.emplace_back("lxc.apparmor.raw", rule);
    }
  }
  // The guest's init mounts the control groups itself, those of its own
  // namespace. The shared configuration would put the host's kind there.
  items.emplace_back("lxc.mount.auto", "");
  items.emplace_back("lxc.mount.auto", "proc:mixed sys:mixed");
  // A console, and no other terminal.
  items.emplace_back("lxc.tty.max", "0");
  addConsole(items, container.id);
  items.emplace_back("lxc.autodev", "1");
}

/// The limits lie on a group above the one that the guest sees as the root of all:
/// else a guest whose root is the host's root could lift them.
void addGroups(LxcItems& items, const Container& container) {
  items.emplace_back("lxc.cgroup.dir.monitor", monitorGroupName(container.id));
  items.emplace_back("lxc.cgroup.dir.container", limitGroupName(container.id));
  items.emplace_back("lxc.cgroup.dir.container.inner", "guest");
}

}  // namespace

HostFacts readHostFacts(const Container& container) {
  HostFacts facts;
  facts.cgroups = readCgroupLayout();
  facts.appArmor =
      readFile("/sys/module/apparmor/parameters/enabled").value_or("").starts_with('Y');
  facts.qxctl = ownProgram();
  facts.device = mountSource(currentMounts(), container.tree());
  return facts;
}

bool hasSystemd(const Container& container) { return initProgram(container) == "systemd"; }

std::string haltSignal(const Container& container) {
  const std::string init = initProgram(container);
  if (init == "systemd") return "SIGRTMIN+3";
  if (init == "busybox" || init == "bbsuid") return "SIGUSR2";
  return {};
}

std::string lxcConfigText(const LxcItems& items) {
  std::string text;
  for (const auto& [key, value] : items) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    const bool ends = !value.empty() && (isBlank(value.front()) || isBlank(value.back()) ||
                                         value.front() == '"' || value.front() == '\'');
    const bool control = std::any_of(value.begin(), value.end(),
                                     [](unsigned char c) { return c < ' ' || c == 0x7f; });
    if (ends || control) {
      fail(ExitCode::kBadConfig, "LXC's configuration cannot hold '%s' for %s", value.c_str(),
           key.c_str());
    }
    text += textf("%s = %s\n", key.c_str(), value.c_str());
  }
  return text;
}

LxcItems lxcItems(const Container& container, const HostFacts& facts) {
  LxcItems items;
  addSecurity(items, container, facts);
  addGroups(items, container);
  items.emplace_back("lxc.rootfs.path", "dir:" + container.root);
  const std::string hostname = container.var("HOSTNAME");
  if (!hostname.empty()) items.emplace_back("lxc.uts.name", hostname.substr(0, hostname.find('.')));
  const std::string halt = haltSignal(container);
  if (!halt.empty()) items.emplace_back("lxc.signal.halt", halt);
  // The quota tools inside find their file system by its device. The rules for devices
  // let nobody in there read or write it.
  if (facts.device.starts_with("/dev/") && !idMapOf(container)) {
    items.emplace_back("lxc.mount.entry", textf("%s %s none bind,create=file,optional 0 0",
                                                facts.device.c_str(), facts.device.c_str() + 1));
  }
  // In the mounts of its own, the guest's set-id programs work again.
  if (!idMapOf(container)) items.emplace_back("lxc.hook.pre-mount", facts.qxctl + " hook");
  // They keep ID.init right also when the guest reboots or ends by itself.
  items.emplace_back("lxc.hook.start-host", facts.qxctl + " hook");
  items.emplace_back("lxc.hook.post-stop", facts.qxctl + " hook");
  addNetwork(items, container);
  for (const Limit& limit : planResources(container, facts.cgroups).limits) {
    items.emplace_back(limit.key, limit.value);
  }
  return items;
}

}  // namespace node
