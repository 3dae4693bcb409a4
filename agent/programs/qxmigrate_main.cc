// qxmigrate: copies a running server into a container of this host, after a plan;
// or shows the plan, or the server's measurement, alone.

#include <poll.h>
#include <sys/eventfd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "agent/framework/plugin.h"
#include "agent/plan/make_plan.h"
#include "agent/plan/plan_json.h"
#include "agent/plan/plan_text.h"
#include "agent/plan/survey_operator.h"
#include "agent/programs/console.h"
#include "agent/programs/journal_commands.h"
#include "agent/programs/journaled_migration.h"
#include "agent/programs/migrate_options.h"
#include "agent/programs/migration.h"
#include "agent/programs/planning.h"
#include "agent/programs/version.h"
#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "agent/system/log_level.h"
#include "agent/system/signals.h"
#include "framework/errors.h"
#include "host/file.h"
#include "host/process_mark.h"
#include "host/shell_vars.h"
#include "host/visible.h"

namespace {

constexpr int exitFailed = 1;
constexpr int exitWarnings = 1;  // of a plan
constexpr int exitBlocked = 2;
constexpr int exitNoPlan = 3;
constexpr int exitUsage = 64;
constexpr int exitCancelled = 130;

// Cancels the migration at the first signal. A second one gives up the server's end,
// which sees to itself; what was begun on this node is still undone.
class CancelOnSignal {
 public:
  CancelOnSignal(int stopFd, std::shared_ptr<agent::CancelToken> token)
      : done_(agent::newEvent()), thread_([this, stopFd, token]() {
          pollfd entries[2] = {{stopFd, POLLIN, 0}, {done_.get(), POLLIN, 0}};
          while (poll(entries, 2, -1) < 0) {
          }
          if (!entries[0].revents) return;
          fprintf(stderr,
                  "\nqxmigrate: stopping; what was begun is being undone (once more: without "
                  "waiting for the server)\n");
          eventfd_t count;
          eventfd_read(stopFd, &count);
          token->cancel();
          while (poll(entries, 2, -1) < 0) {
          }
          if (!entries[0].revents) return;
          fprintf(stderr, "\nqxmigrate: the server is not waited for\n");
          token->abandon();
        }) {}
  ~CancelOnSignal() {
    agent::raiseEvent(done_);
    thread_.join();
  }

 private:
  host::Fd done_;
  std::thread thread_;
};

enum class Command { migrate, plan, measure };

struct Settings {
  Command command = Command::migrate;
  QXL::QXLConnectionInfo source;
  agent::MigrateOptions options;
  agent::MeasureSettings measure;
  std::string library;
  std::string output;
  bool json = false;
  bool force = false;
  bool noMeasure = false;
  bool fresh = false;
  bool quiet = false;
  int verbosity = 0;
};

void describeSource(CLI::App& app, Settings& settings) {
  app.add_option("source", settings.source.address,
                 "The server: [user@]host[:port] or ssh://[user@]host[:port], reached by ssh;\n"
                 "or unix:PATH of the socket of an agent that runs there already")
      ->required();
  app.add_option("--ssh-option", settings.source.transportOptions,
                 "Option for ssh, as after its -o; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--library", settings.library, "The plug-in to load");
  app.add_flag("-v,--verbose", settings.verbosity, "Log more; may be repeated");
}

void describeMeasure(CLI::App& app, Settings& settings) {
  agent::MeasureSettings& measure = settings.measure;
  app.add_option("--duration", measure.duration, "Seconds to measure for (5); 0 for one sample")
      ->check(CLI::Range(0, 86400));
  app.add_option("--interval", measure.interval, "Seconds between samples (1)")
      ->check(CLI::Range(1, 86400));
  app.add_option("--proc-scale", measure.procScale,
                 "Factor for process, socket, memory and lock limits (1.0)")
      ->check(CLI::Range(0.001, 1000.0));
  app.add_option("--disk-scale", measure.diskScale, "Factor for disk limits (1.0)")
      ->check(CLI::Range(0.001, 1000.0));
}

// What a migration and its plan are told alike.
void describeContainer(CLI::App& app, Settings& settings) {
  agent::MigrateOptions& options = settings.options;
  app.add_option("--ctid", options.ctid, "Id of the container to make")->required();
  app.add_option("--distribution", options.distribution,
                 "The server's distribution, NAME-VERSION such as debian-12 (default: found out)");
  app.add_option("--hostname", options.hostname, "Host name of the container (default: the same)");
  app.add_option("--ip", options.addresses,
                 "Address of the container, ADDRESS/PREFIX, \"dhcp\", or \"auto\" for one from\n"
                 "the host's pool; may be repeated (default: the server's)")
      ->allow_extra_args(false);
  app.add_option("--nameserver", options.nameservers, "Name server; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--searchdomain", options.searchDomains, "Search domain; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--ostemplate", options.osTemplate, "Make the container from this OS template");
  app.add_option("--diskspace", options.diskSpace,
                 "Disk limit, 1024-byte blocks, SOFT:HARD (default: measured)");
  app.add_option("--diskinodes", options.diskInodes, "Inode limit, SOFT:HARD (default: measured)");
  app.add_option("--config", options.configFile,
                 "Take the container's configuration from this file (NAME=\"value\" lines), such\n"
                 "as \"qxmigrate measure --output\" writes; the options above override it");
  app.add_option("--exclude", options.excludes,
                 "Absolute path or pattern that is not copied; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--stop-service", options.services,
                 "Stop this service (a script in the server's /etc/init.d) before the second\n"
                 "copy; it stays stopped when the migration succeeds; may be repeated")
      ->allow_extra_args(false);
  describeMeasure(app, settings);
}

void describe(CLI::App& app, Settings& settings) {
  app.set_version_flag("--version", std::string("qxmigrate ") + agent::version);
  describeSource(app, settings);
  switch (settings.command) {
    case Command::measure:
      describeMeasure(app, settings);
      app.add_flag("--json", settings.json, "Print JSON");
      app.add_option("--output", settings.output,
                     "Write the computed configuration to this file, for --config");
      app.footer(
          "Exit status: 0 when measured, 1 when that failed, 64 for a wrong command line,\n"
          "130 when it was cancelled.");
      return;
    case Command::plan:
      describeContainer(app, settings);
      app.add_flag("--json", settings.json, "Print JSON");
      app.footer(
          "Nothing is changed on either side. Exit status: 0 ready, 1 ready with warnings,\n"
          "2 blocked, 3 when no plan could be made, 64 for a wrong command line, 130 when\n"
          "it was cancelled.");
      return;
    case Command::migrate:
      break;
  }
  describeContainer(app, settings);
  app.add_flag("--force", settings.force, "Migrate although the plan says blocked");
  app.add_flag("--no-measure", settings.noMeasure,
               "Neither measure nor plan: --distribution must be given, limits are those of\n"
               "--config and the options, the disk is unlimited otherwise");
  app.add_flag("--keep-on-failure", settings.options.keepOnFailure,
               "When the migration fails, keep what was copied for a later attempt");
  app.add_flag("--fresh", settings.fresh,
               "Begin from nothing: remove what an earlier attempt has copied (default: go on\n"
               "from it when it is of the same server)");
  app.add_flag("-q,--quiet", settings.quiet, "Show errors only");
  app.footer(
      "Other uses, each with its own --help:\n"
      "  qxmigrate plan SOURCE --ctid ID   show what would be done, touching nothing\n"
      "  qxmigrate measure SOURCE          measure the server and compute limits\n"
      "  qxmigrate list                    list the migrations of this host\n"
      "  qxmigrate show ID                 show what one did\n"
      "  qxmigrate clean ID                remove what an interrupted one left\n"
      "\n"
      "Exit status: 0 when the container is there, 1 when the migration failed and was\n"
      "undone, 2 when the plan says blocked and nothing was touched, 64 for a wrong\n"
      "command line, 130 when it was cancelled and undone.\n"
      "\n"
      "Example:\n"
      "  qxmigrate root@oldserver --ctid 101 --stop-service nginx");
}

int usage(const std::exception& problem) {
  fprintf(stderr, "qxmigrate: %s\n", host::visibleLines(problem.what()).c_str());
  return exitUsage;
}

host::ShellVars variablesOf(const std::string& config) {
  try {
    return host::parseOwnShellVars(config, host::idAsWritten());
  } catch (const std::exception& problem) {
    throw std::runtime_error("the measurement: " + std::string(problem.what()));
  }
}

int measure(const Settings& settings, agent::MigrationView& view,
            const std::shared_ptr<agent::CancelToken>& cancel) {
  agent::Planning planning(settings.source, view, cancel);
  const agent::Measurement measurement = planning.measure(settings.measure);
  const host::ShellVars config = variablesOf(measurement.config);
  if (!settings.output.empty() && agent::attempt([&]() {
                                    host::replaceFileDurably(settings.output, measurement.config,
                                                             0644);
                                  }) != 0) {
    throw std::runtime_error("--output: " + QXL::getErrorMessage());
  }
  const auto format = settings.json ? agent::measurementJson : agent::measurementText;
  fputs(format(settings.source.address, measurement, config).c_str(), stdout);
  return 0;
}

int plan(Settings& settings, agent::MigrationView& view,
         const std::shared_ptr<agent::CancelToken>& cancel) {
  agent::Planning planning(settings.source, view, cancel);
  const agent::PlanFacts facts = planning.gather(settings.options, settings.measure);
  const agent::Plan made = agent::makePlan(facts);
  fputs((settings.json ? agent::planJson : agent::planText)(facts, made).c_str(), stdout);
  if (made.verdict == agent::Verdict::blocked) return exitBlocked;
  return made.verdict == agent::Verdict::ready ? 0 : exitWarnings;
}

int tellEnd(const Settings& settings, const agent::MigrationResult& result,
            const agent::CancelToken& cancel) {
  if (result.succeeded) {
    if (!settings.quiet) printf("Container %lld is ready.\n", settings.options.ctid);
    return 0;
  }
  if (cancel.code() == agent::cancelledByUser) {
    fprintf(stderr, "qxmigrate: cancelled in stage '%s'\n", result.stage.c_str());
    return exitCancelled;
  }
  fprintf(stderr, "qxmigrate: stage '%s' failed: %s\n", result.stage.c_str(),
          host::visibleLines(result.text).c_str());
  return exitFailed;
}

int migrate(Settings& settings, agent::MigrationView& view,
            const std::shared_ptr<agent::CancelToken>& cancel) {
  // Keeps the connection, which the migration shares.
  std::unique_ptr<agent::Planning> planning;
  try {
    planning = std::make_unique<agent::Planning>(settings.source, view, cancel);
  } catch (const std::runtime_error& problem) {
    agent::MigrationResult result;
    result.stage = "connect";
    result.text = problem.what();
    return tellEnd(settings, result, *cancel);
  }
  agent::JournalFacts facts;
  facts.server = planning->identify();
  {
    agent::MigrateOptions options = settings.options;
    options.distributionRequired = false;
    agent::clearTheWay(settings.source, *agent::makeParams(options), facts.server, settings.fresh,
                       view);
  }
  if (!settings.noMeasure) {
    const agent::Plan made = agent::makePlan(planning->gather(settings.options, settings.measure));
    facts.bytes = made.bytes;
    facts.files = made.files;
    for (const agent::Finding& finding : made.findings) {
      if (finding.severity != agent::Severity::note) facts.warnings.push_back(finding.text);
    }
    const bool blocked = made.verdict == agent::Verdict::blocked;
    if (blocked || !settings.quiet) {
      fputs(agent::verdictText(made).c_str(), blocked && !settings.force ? stderr : stdout);
    }
    if (blocked && !settings.force) {
      fprintf(stderr, "qxmigrate: the plan says blocked; nothing was touched (see --force)\n");
      return exitBlocked;
    }
  }
  const auto params = agent::makeParams(settings.options);
  return tellEnd(settings, agent::migrateWithJournal(settings.source, params, facts, view, cancel),
                 *cancel);
}

int run(Settings& settings) {
  if (settings.command != Command::measure) {
    // What is wrong in the options is told before the server is bothered.
    agent::MigrateOptions options = settings.options;
    options.distributionRequired = settings.noMeasure;
    boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> params;
    try {
      params = agent::makeParams(options);
    } catch (const std::exception& problem) {
      return usage(problem);
    }
    // As long as there are no threads, and before anything is made.
    if (settings.command == Command::migrate) {
      const std::string warning = agent::prepareNode(*params);
      if (!warning.empty()) fprintf(stderr, "qxmigrate: %s\n", warning.c_str());
    }
  }
  agent::setLogLevel(1 + settings.verbosity);
  const int stopFd = agent::catchStopSignals();
  const auto cancel = std::make_shared<agent::CancelToken>();
  const agent::Plugin plugin(settings.library.empty() ? agent::Plugin::defaultPath()
                                                      : settings.library);
  agent::registerSurveyOperator();
  // Pages and JSON are the only output of those that print them.
  agent::Console console(settings.quiet || settings.command != Command::migrate);
  const CancelOnSignal watcher(stopFd, cancel);
  try {
    if (settings.command == Command::measure) return measure(settings, console, cancel);
    if (settings.command == Command::plan) return plan(settings, console, cancel);
    return migrate(settings, console, cancel);
  } catch (const std::exception& problem) {
    if (cancel->code() == agent::cancelledByUser) {
      fprintf(stderr, "qxmigrate: cancelled\n");
      return exitCancelled;
    }
    fprintf(stderr, "qxmigrate: %s\n", host::visibleLines(problem.what()).c_str());
    return settings.command == Command::plan ? exitNoPlan : exitFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // What the plug-in's programs print is read, and is not to be translated.
  setenv("LC_ALL", "C", 1);
  const std::string word = argc > 1 ? argv[1] : "";
  if (agent::isJournalCommand(word)) return agent::runJournalCommand(argc, argv);
  host::markPrograms();
  Settings settings;
  if (word == "plan") settings.command = Command::plan;
  if (word == "measure") settings.command = Command::measure;
  CLI::App app(settings.command == Command::plan
                   ? "Shows what migrating a server would do, and what stands in its way."
               : settings.command == Command::measure
                   ? "Measures a running server and computes a container's limits."
                   : "Copies a running server into a container of this host.");
  if (settings.command != Command::migrate) {
    app.name("qxmigrate " + word);
    --argc;
    ++argv;
  }
  describe(app, settings);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? 0 : exitUsage;
  }
  try {
    return run(settings);
  } catch (const std::exception& problem) {
    fprintf(stderr, "qxmigrate: %s\n", host::visibleLines(problem.what()).c_str());
    return settings.command == Command::plan ? exitNoPlan : exitFailed;
  }
}
