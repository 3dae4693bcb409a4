// qxctl: the life of containers, from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/container.h"
#include "host/error.h"
#include "host/lock.h"
#include "host/place.h"
#include "host/state.h"
#include "node/adapt.h"
#include "node/engine.h"
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
  std::string ctid;
  std::string script;
  std::vector<std::string> words;
  int timeout = 120;
  bool fast = false;
};

constexpr char kAbout[] =
    "Works on the containers of this host.\n\n"
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
    "runscript and exec end with the exit status of what they ran.\n";

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

int start(const Options& options) {
  return locked(options, "starting", [](const node::Container& container) {
    requireConfig(container);
    const node::Outcome outcome = node::startContainer(container);
    say(container, outcome == node::Outcome::kDone ? "was started" : "was running already");
    return 0;
  });
}

int stop(const Options& options) {
  return locked(options, "stopping", [&](const node::Container& container) {
    requireConfig(container);
    const node::Outcome outcome =
        node::stopContainer(container, options.fast ? 0 : options.timeout);
    say(container, outcome == node::Outcome::kDone ? "was stopped" : "was not running");
    return 0;
  });
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

// These two leave the lock alone: a shell may stay open for days.
int exec(const Options& options) {
  return node::execInContainer(node::loadContainer(node::parseCtid(options.ctid)), options.words);
}

int enter(const Options& options) {
  return node::enterContainer(node::loadContainer(node::parseCtid(options.ctid)));
}

int set(const Options& options) {
  return locked(options, "setting variables", [&](const node::Container& container) {
    requireConfig(container);
    const node::Assignments assignments = node::parseAssignments(options.words);
    const node::Container changed = node::setVariables(container, assignments);
    bool guest = false;
    bool limits = false;
    for (const auto& [name, value] : assignments) {
      if (container.var(name.c_str()) == value) continue;
      guest = guest || node::isGuestVariable(name);
      limits = limits || node::isResourceRecord(name);
    }
    const bool running = node::runningInit(changed.id).has_value();
    if (guest && node::hasPrivateArea(changed)) node::markForAdaptation(changed);
    if (guest && running) {
      printf("the host name and the network change when container %u is started again\n",
             changed.id);
    }
    int result = 0;
    if (limits && running) {
      for (const std::string& refused : node::applyLimits(changed)) {
        fprintf(stderr, "qxctl: the kernel refuses %s for now\n", refused.c_str());
        result = static_cast<int>(node::ExitCode::kFailed);
      }
    }
    return result;
  });
}

int hook(const Options& options) {
  node::runHook(options.words.at(0), options.words.at(2));
  return 0;
}

int status(const Options& options) {
  const node::StatusReport report =
      node::reportOn(node::findContainer(node::parseCtid(options.ctid)), node::readHostState());
  const std::string text = options.json ? node::statusJson(report) : node::statusText(report);
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
    {"create", create, "Make the private area from the OS template named in the configuration"},
    {"mount", mountIt, "Show the container's files at its root"},
    {"umount", umountIt, "Undo mount"},
    {"convert", convert, "Register a private area that was filled by hand or by a migration"},
    {"start", start, "Start the container; mount it if need be"},
    {"enter", enter, "Open a shell in the running container"},
    {"destroy", destroy, "Remove the container: private area, root and configuration"},
};

void describeRunning(CLI::App& app, Options& options, Command& chosen) {
  for (const Row& row : {Row{"stop", stop, "Shut the container down and unmount it"},
                         Row{"restart", restart, "Stop the container and start it"}}) {
    CLI::App* command = app.add_subcommand(row.name, row.about);
    command->add_option("ID", options.ctid, "Container id")->required();
    command->add_option("--timeout", options.timeout, "Seconds until what has not ended is killed")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    command->add_flag("--fast", options.fast, "Kill at once");
    command->callback([&chosen, run = row.command] { chosen = run; });
  }
  CLI::App* inside = app.add_subcommand("exec", "Run a command in the running container");
  inside->add_option("ID", options.ctid, "Container id")->required();
  // The command's own options are not ours.
  inside->prefix_command();
  inside->fallthrough(false);
  inside->footer("After ID come the program and its arguments.");
  inside->callback([&options, &chosen, inside] {
    options.words = inside->remaining();
    if (!options.words.empty() && options.words.front() == "--") {
      options.words.erase(options.words.begin());
    }
    if (options.words.empty()) throw CLI::RequiredError("COMMAND");
    chosen = exec;
  });
  CLI::App* change = app.add_subcommand("set", "Change variables of the configuration");
  change->add_option("ID", options.ctid, "Container id")->required();
  change->add_option("NAME=VALUE", options.words, "Variables, such as NUMPROC=500:500")->required();
  change->callback([&chosen] { chosen = set; });
  // For LXC: name, section and type, and what some types add.
  CLI::App* called = app.add_subcommand("hook")->group("");
  called->add_option("WORDS", options.words)->required()->expected(3, -1);
  called->callback([&chosen] { chosen = hook; });
}

int runCommandLine(int argc, char** argv) {
  CLI::App app{kAbout, "qxctl"};
  app.footer(std::string(kExamples) + "\n" + node::exitCodeHelp());
  app.require_subcommand(1);
  app.fallthrough();
  Options options;
  app.add_flag("--skiplock", options.skipLock,
               "Leave the container's lock alone: for callers that hold it");
  Command chosen = nullptr;
  for (const Row& row : kContainerCommands) {
    CLI::App* command = app.add_subcommand(row.name, row.about);
    command->add_option("ID", options.ctid, "Container id")->required();
    command->callback([&chosen, &row] { chosen = row.command; });
  }
  CLI::App* run = app.add_subcommand(
      "runscript", "Run a script of the host with the stopped container's files as its root");
  run->add_option("ID", options.ctid, "Container id")->required();
  run->add_option("SCRIPT", options.script, "Script file on the host")->required();
  run->callback([&chosen] { chosen = runScript; });
  describeRunning(app, options, chosen);
  CLI::App* show = app.add_subcommand("status", "Tell the container's state");
  show->add_option("ID", options.ctid, "Container id")->required();
  show->add_flag("--json", options.json, "As a JSON object");
  show->callback([&chosen] { chosen = status; });
  CLI::App* table = app.add_subcommand("list", "List mounted and running containers");
  table->add_flag("-a,--all", options.all, "List all containers");
  table->add_flag("--json", options.json, "As a JSON array");
  table->callback([&chosen] { chosen = list; });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) == 0) return 0;  // --help is an "error" to the parser, too.
    return static_cast<int>(node::ExitCode::kUsage);
  }
  return node::runTool("qxctl", [&] {
    const std::string warning = node::ensureConfigDirectory();
    if (!warning.empty()) fprintf(stderr, "qxctl: warning: %s\n", warning.c_str());
    return chosen(options);
  });
}

}  // namespace

int main(int argc, char** argv) {
  node::setToolPath();
  return runCommandLine(argc, argv);
}
