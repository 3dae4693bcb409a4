// qxctl: the life of containers, from the command line.
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/cli_words.h"
#include "host/container.h"
#include "host/error.h"
#include "host/lock.h"
#include "host/place.h"
#include "host/product.h"
#include "host/state.h"
#include "host/text.h"
#include "node/adapt.h"
#include "node/boot.h"
#include "node/engine.h"
#include "node/logs.h"
#include "node/lxc_config.h"
#include "node/lxc_engine.h"
#include "node/report.h"
#include "node/runscript.h"
#include "node/set_variables.h"
#include "node/tool_main.h"

namespace {

struct Options {
  bool skipLock = false;
  bool json = false;
  bool all = false;
  bool onBoot = false;
  std::string ctid;
  std::string script;
  std::vector<std::string> words;
  int timeout = 120;
  bool fast = false;
  size_t lines = 100;
  bool follow = false;
};

constexpr char kAbout[] =
    "Manages the containers of this host.\n\n"
    "A container ID is described by /etc/sysconfig/qx-scripts/ID.conf. Its files are in its\n"
    "private area (VE_PRIVATE, by default /var/lib/qx/private/ID) and appear at its root\n"
    "(VE_ROOT, by default /var/lib/qx/root/ID) while it is mounted. Host-wide settings are in\n"
    "/etc/qx/qx.conf.\n";

constexpr char kExamples[] =
    "A first container:\n"
    "  echo 'OSTEMPLATE=\"debian-12\"' > /etc/sysconfig/qx-scripts/101.conf\n"
    "  qxctl create 101     (from /var/lib/qx/template/debian-12.tar.xz)\n"
    "  qxctl mount 101\n"
    "  qxctl status 101\n\n"
    "runscript and exec exit with the status of what they ran.\n";

void say(const node::Container& container, const char* what) {
  printf("container %u %s\n", container.id, what);
}

/// Takes the lock, reads the configuration, does the work.
template <class Work>
int locked(const Options& options, const char* status, Work work) {
  const unsigned id = node::parseCtid(options.ctid);
  std::unique_ptr<node::ContainerLock> lock;
  if (!options.skipLock) {
    lock = std::make_unique<node::ContainerLock>(node::findContainer(id).lockDir, id, status);
  }
  // Read under the lock: whoever held it before may have written it.
  const node::Container container = node::findContainer(id);
  node::requireOwnPlaces(container);
  return work(container);
}

void requireConfig(const node::Container& container) { node::loadContainer(container.id); }

int create(const Options& options) {
  return locked(options, "creating", [](const node::Container& container) {
    requireConfig(container);
    node::createContainer(container);
    say(container, "was created");
    return 0;
  });
}

int mountIt(const Options& options) {
  return locked(options, "mounting", [](const node::Container& container) {
    requireConfig(container);
    const node::Outcome outcome = node::mountContainer(container);
    say(container, outcome == node::Outcome::kDone ? "is mounted" : "was mounted already");
    return 0;
  });
}

int umountIt(const Options& options) {
  return locked(options, "unmounting", [](const node::Container& container) {
    node::umountContainer(container);
    say(container, "is unmounted");
    return 0;
  });
}

int convert(const Options& options) {
  return locked(options, "converting", [](const node::Container& container) {
    requireConfig(container);
    const node::Outcome outcome = node::convertContainer(container);
    say(container, outcome == node::Outcome::kDone ? "is registered" : "was registered already");
    return 0;
  });
}

int destroy(const Options& options) {
  return locked(options, "destroying", [](const node::Container& container) {
    node::destroyContainer(container);
    say(container, "was destroyed");
    return 0;
  });
}

int runScript(const Options& options) {
  return locked(options, "running a script", [&](const node::Container& container) {
    requireConfig(container);
    return node::runScript(container, options.script);
  });
}

int startOne(const Options& options) {
  return locked(options, "starting", [](const node::Container& container) {
    requireConfig(container);
    const node::Outcome outcome = node::startContainer(container);
    say(container, outcome == node::Outcome::kDone ? "was started" : "was running already");
    return 0;
  });
}

int stopOne(const Options& options) {
  return locked(options, "stopping", [&](const node::Container& container) {
    requireConfig(container);
    const node::Outcome outcome =
        node::stopContainer(container, options.fast ? 0 : options.timeout);
    say(container, outcome == node::Outcome::kDone ? "was stopped" : "was not running");
    return 0;
  });
}

/// The ID, or what stands for several of them, and not both.
void requireOneOf(const Options& options, bool several, const char* flag) {
  if (options.ctid.empty() == several) return;
  node::fail(node::ExitCode::kUsage,
             several ? "ID and %s cannot be given together" : "ID or %s is missing", flag);
}

Options withId(Options options, unsigned id) {
  options.ctid = std::to_string(id);
  return options;
}

/// A process of its own for work on one container of several. Returns its pid.
template <class Work>
pid_t inChild(Work work) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) node::failErrno("cannot start a process for a container");
  if (child > 0) return child;
  const int result = node::runTool("qxctl", work);
  fflush(nullptr);
  _exit(result);
}

/// Waits for it. Returns its exit status.
int endOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) node::failErrno("cannot wait for process %d", child);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(node::ExitCode::kFailed);
}

int start(const Options& options) {
  requireOneOf(options, options.onBoot, "--onboot");
  if (!options.onBoot) return startOne(options);
  int result = 0;
  std::vector<node::Container> containers;
  for (const unsigned id : node::configuredIds()) {
    // One that is malformed, or does not start, must not keep the others down.
    const int one = node::runTool("qxctl", [&] {
      const std::vector<node::Container> found = node::bootOrder({node::findContainer(id)});
      containers.insert(containers.end(), found.begin(), found.end());
      return 0;
    });
    if (one != 0) result = one;
  }
  for (const node::Container& container : node::bootOrder(containers)) {
    // LXC leaves the process that starts a container in a control group of it.
    const int one = endOf(inChild([&] { return startOne(withId(options, container.id)); }));
    if (one != 0) result = one;
  }
  return result;
}

/// Stops one container, whatever else somebody is doing with it at the moment.
int stopDespiteLock(const Options& options) {
  for (int left = options.timeout;; --left) {
    try {
      return stopOne(options);
    } catch (const node::Error& error) {
      if (error.code() != node::ExitCode::kLocked || left <= 0) throw;
    }
    sleep(1);
  }
}

int stop(const Options& options) {
  requireOneOf(options, options.all, "--all");
  if (!options.all) return stopOne(options);
  // All at the same time: each may take as long as the host has for all of them.
  std::vector<pid_t> children;
  for (const unsigned id : node::configuredIds()) {
    if (!node::isRunning(id)) continue;
    children.push_back(inChild([&] { return stopDespiteLock(withId(options, id)); }));
  }
  int result = 0;
  for (const pid_t child : children) {
    if (const int one = endOf(child)) result = one;
  }
  return result;
}

int restart(const Options& options) {
  return locked(options, "restarting", [&](const node::Container& container) {
    requireConfig(container);
    node::stopContainer(container, options.fast ? 0 : options.timeout);
    node::startContainer(container);
    say(container, "was started");
    return 0;
  });
}

// These leave the lock alone: a shell may stay open for days.
int exec(const Options& options) {
  return node::execInContainer(node::loadContainer(node::parseCtid(options.ctid)), options.words);
}

int enter(const Options& options) {
  return node::enterContainer(node::loadContainer(node::parseCtid(options.ctid)));
}

int console(const Options& options) {
  node::openConsole(node::loadContainer(node::parseCtid(options.ctid)));
  return 0;
}

int logs(const Options& options) {
  const node::Container container = node::loadContainer(node::parseCtid(options.ctid));
  if (node::isRunning(container.id) && node::hasSystemd(container)) {
    fprintf(stderr, "qxctl: what its services say is in the journal: qxctl exec %u journalctl\n",
            container.id);
  }
  node::showLogs(container.id, options.lines, options.follow);
  return 0;
}

void sayWhen(const std::vector<std::string>& names, const char* when) {
  if (!names.empty()) printf("%s: %s\n", when, host::joined(names).c_str());
}

int set(const Options& options) {
  return locked(options, "setting variables", [&](const node::Container& container) {
    requireConfig(container);
    const node::Assignments assignments = node::parseAssignments(options.words);
    const node::Container changed = node::setVariables(container, assignments);
    std::vector<std::string> names;
    for (const auto& [name, value] : assignments) {
      if (container.var(name.c_str()) != value) names.push_back(name);
    }
    const bool guest = std::any_of(names.begin(), names.end(), node::isGuestVariable);
    if (guest && node::hasPrivateArea(changed)) node::markForAdaptation(changed);
    if (!node::runningInit(changed.id)) return 0;

    int result = 0;
    node::Effects effects = node::effectsOf(changed, names, node::readCgroupLayout());
    if (!effects.now.empty()) {
      for (const node::Limit& refused : node::applyLimits(changed)) {
        fprintf(stderr, "qxctl: the kernel refuses %s = %s for now\n", refused.key.c_str(),
                refused.value.c_str());
        std::erase(effects.now, refused.record);
        result = static_cast<int>(node::ExitCode::kFailed);
      }
    }
    sayWhen(effects.now, "in force now");
    sayWhen(effects.nextStart, "at the next start");
    sayWhen(effects.never, "limits nothing on this host");
    return result;
  });
}

int hook(const Options& options) {
  node::runHook(options.words.at(0), options.words.at(2));
  return 0;
}

int status(const Options& options) {
  const node::HostState host = node::readHostState();
  const node::StatusReport report =
      node::reportOn(node::findContainer(node::parseCtid(options.ctid)), host);
  const std::string text = options.json ? node::statusJson(report, host.warnings)
                                        : node::statusText(report, host.warnings);
  fputs(text.c_str(), stdout);
  return report.exists ? 0 : static_cast<int>(node::ExitCode::kNotFound);
}

int list(const Options& options) {
  std::vector<node::StatusReport> reports;
  int result = 0;
  const node::HostState host = node::readHostState();
  for (const unsigned id : node::configuredIds()) {
    // One malformed file must not hide the other containers.
    const int one = node::runTool("qxctl", [&] {
      node::StatusReport report = node::reportOn(node::findContainer(id), host);
      if (options.all || report.mounted || report.running) reports.push_back(std::move(report));
      return 0;
    });
    if (one != 0) result = one;
  }
  const std::string text = options.json ? node::listJson(reports) : node::listText(reports);
  fputs(text.c_str(), stdout);
  return result;
}

using Command = int (*)(const Options&);

struct Row {
  const char* name;
  Command command;
  const char* about;
};

constexpr Row kContainerCommands[] = {
    {"create", create, "Create the private area from the OS template named in the configuration"},
    {"mount", mountIt, "Mount the container's private area at its root"},
    {"umount", umountIt, "Unmount the container's root"},
    {"convert", convert, "Register a private area that was filled by hand or by a migration"},
    {"enter", enter, "Open a shell in the running container"},
    {"console", console, "Join the running container's console; Ctrl+a and then q leave it"},
    {"destroy", destroy, "Remove the container: private area, root and configuration"},
};

void describeRunning(CLI::App& app, Options& options, Command& chosen) {
  CLI::App* begin = app.add_subcommand("start", "Start the container; mount it if need be");
  begin->add_option("ID", options.ctid, "Container ID");
  begin->add_flag(
      "--onboot", options.onBoot,
      "Start every container with ONBOOT=yes in the order of BOOTORDER, as at the host's boot");
  begin->callback([&chosen] { chosen = start; });
  for (const Row& row : {Row{"stop", stop, "Shut the container down and unmount it"},
                         Row{"restart", restart, "Stop the container and start it"}}) {
    CLI::App* command = app.add_subcommand(row.name, row.about);
    CLI::Option* id = command->add_option("ID", options.ctid, "Container ID");
    if (row.command == stop) {
      command->add_flag("--all", options.all, "Stop every running container, all at the same time");
    } else {
      id->required();
    }
    command
        ->add_option("--timeout", options.timeout,
                     "Seconds to wait before what still runs is killed")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    command->add_flag("--fast", options.fast, "Kill everything at once instead of shutting down");
    command->callback([&chosen, run = row.command] { chosen = run; });
  }
  CLI::App* inside = app.add_subcommand("exec", "Run a command in the running container");
  inside->add_option("ID", options.ctid, "Container ID")->required();
  // The command's own options are not ours.
  inside->prefix_command();
  inside->fallthrough(false);
  inside->footer("ID is followed by the program to run and its arguments.");
  inside->callback([&options, &chosen, inside] {
    options.words = inside->remaining();
    if (!options.words.empty() && options.words.front() == "--") {
      options.words.erase(options.words.begin());
    }
    if (options.words.empty()) throw CLI::RequiredError("COMMAND");
    chosen = exec;
  });
  CLI::App* read = app.add_subcommand(
      "logs", "Show LXC's log of the last start and what has been on the console since");
  read->add_option("ID", options.ctid, "Container ID")->required();
  read->add_option("-n,--lines", options.lines, "Lines of each to begin with")
      ->check(CLI::Range(0, 1000000))
      ->capture_default_str();
  read->add_flag("-f,--follow", options.follow, "Go on with what comes, until interrupted");
  read->callback([&chosen] { chosen = logs; });
  CLI::App* change = app.add_subcommand("set", "Change variables of the configuration");
  change->add_option("ID", options.ctid, "Container ID")->required();
  change
      ->add_option("VARIABLE", options.words,
                   "NAME=VALUE, such as NUMPROC=500:500; may be repeated")
      ->required();
  change->callback([&chosen] { chosen = set; });
  // For LXC: name, section and type, and what some types add.
  CLI::App* called = app.add_subcommand("hook")->group("");
  called->add_option("WORDS", options.words)->required()->expected(3, -1);
  called->callback([&chosen] { chosen = hook; });
}

/// Names the command or option that there is not.
bool sayUnknown(const CLI::App& app, int argc, char** argv) {
  host::CommandWords known = host::wordsOf(app);
  known.sharedOptions = true;
  const std::string text = host::misspelt({argv + 1, argv + argc}, known);
  if (text.empty()) return false;
  fprintf(stderr, "qxctl: %s (see qxctl --help)\n", text.c_str());
  return true;
}

int runCommandLine(int argc, char** argv) {
  CLI::App app{kAbout, "qxctl"};
  app.footer(std::string(kExamples) + "\n" + node::exitCodeHelp());
  app.set_version_flag("--version", "qxctl " + host::productVersion());
  app.require_subcommand(1);
  app.fallthrough();
  Options options;
  app.add_flag("--skiplock", options.skipLock,
               "Do not take the container's lock: for callers that hold it already");
  Command chosen = nullptr;
  for (const Row& row : kContainerCommands) {
    CLI::App* command = app.add_subcommand(row.name, row.about);
    command->add_option("ID", options.ctid, "Container ID")->required();
    command->callback([&chosen, &row] { chosen = row.command; });
  }
  CLI::App* run = app.add_subcommand(
      "runscript", "Run a script of the host with the stopped container's files as its root");
  run->add_option("ID", options.ctid, "Container ID")->required();
  run->add_option("SCRIPT", options.script, "Script file on the host")->required();
  run->callback([&chosen] { chosen = runScript; });
  describeRunning(app, options, chosen);
  CLI::App* show = app.add_subcommand("status", "Show the container's state");
  show->add_option("ID", options.ctid, "Container ID")->required();
  show->add_flag("--json", options.json, "Print a JSON object");
  show->callback([&chosen] { chosen = status; });
  CLI::App* table = app.add_subcommand("list", "List mounted and running containers");
  table->add_flag("-a,--all", options.all, "List all containers");
  table->add_flag("--json", options.json, "Print a JSON array");
  table->callback([&chosen] { chosen = list; });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help is an "error" to the parser, too.
    if (error.get_exit_code() == 0) return app.exit(error);
    if (!sayUnknown(app, argc, argv)) app.exit(error);
    return static_cast<int>(node::ExitCode::kUsage);
  }
  const std::string warning = node::ensureConfigDirectory();
  if (!warning.empty()) fprintf(stderr, "qxctl: warning: %s\n", warning.c_str());
  return chosen(options);
}

}  // namespace

int main(int argc, char** argv) {
  node::setToolPath();
  return node::runTool("qxctl", [&] { return runCommandLine(argc, argv); });
}
