// qxmigrate: copies a running server into a container of this host.

#include <poll.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <thread>

#include "agent/console.h"
#include "agent/event.h"
#include "agent/log_level.h"
#include "agent/migrate_options.h"
#include "agent/migration.h"
#include "agent/plugin.h"
#include "agent/signals.h"
#include "agent/version.h"

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
constexpr int exitCancelled = 130;

// Cancels the migration at the first signal; a second one changes nothing, since
// what was begun must be undone.
class CancelOnSignal {
 public:
  CancelOnSignal(int stopFd, std::shared_ptr<agent::CancelToken> token)
      : done_(agent::newEvent()), thread_([this, stopFd, token]() {
          pollfd entries[2] = {{stopFd, POLLIN, 0}, {done_.get(), POLLIN, 0}};
          while (poll(entries, 2, -1) < 0) {
          }
          if (!entries[0].revents) return;
          fprintf(stderr, "\nqxmigrate: stopping; what was begun is being undone\n");
          token->cancel();
        }) {}
  ~CancelOnSignal() {
    agent::raiseEvent(done_);
    thread_.join();
  }

 private:
  agent::UniqueFd done_;
  std::thread thread_;
};

struct Settings {
  QXL::QXLConnectionInfo source;
  agent::MigrateOptions options;
  std::string library;
  bool quiet = false;
  int verbosity = 0;
};

void describe(CLI::App& app, Settings& settings) {
  agent::MigrateOptions& options = settings.options;
  app.set_version_flag("--version", std::string("qxmigrate ") + agent::version);
  app.add_option("source", settings.source.address,
                 "The server: [user@]host[:port] or ssh://[user@]host[:port], reached by ssh;\n"
                 "or unix:PATH of the socket of an agent that runs there already")
      ->required();
  app.add_option("--ssh-option", settings.source.transportOptions,
                 "Option for ssh, as after its -o; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--ctid", options.ctid, "Id of the container to make")->required();
  app.add_option("--distribution", options.distribution,
                 "The server's distribution, NAME-VERSION such as debian-12");
  app.add_option("--hostname", options.hostname, "Host name of the container");
  app.add_option("--ip", options.addresses,
                 "Address of the container, ADDRESS/PREFIX, \"dhcp\", or \"auto\" for one from\n"
                 "the host's pool; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--nameserver", options.nameservers, "Name server; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--searchdomain", options.searchDomains, "Search domain; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--ostemplate", options.osTemplate, "Make the container from this OS template");
  app.add_option("--diskspace", options.diskSpace,
                 "Disk limit, 1024-byte blocks, SOFT:HARD (default: unlimited)");
  app.add_option("--diskinodes", options.diskInodes, "Inode limit, SOFT:HARD (default: unlimited)");
  app.add_option("--config", options.configFile,
                 "Take the container's configuration from this file (NAME=\"value\" lines);\n"
                 "the options above override it");
  app.add_option("--exclude", options.excludes,
                 "Absolute path or pattern that is not copied; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--stop-service", options.services,
                 "Stop this service (a script in the server's /etc/init.d) before the second\n"
                 "copy; it stays stopped when the migration succeeds; may be repeated")
      ->allow_extra_args(false);
  app.add_flag("--keep-on-failure", options.keepOnFailure,
               "When the migration fails, keep what was copied for a later attempt");
  app.add_option("--library", settings.library, "The plug-in to load");
  app.add_flag("-q,--quiet", settings.quiet, "Show errors only");
  app.add_flag("-v,--verbose", settings.verbosity, "Log more; may be repeated");
  app.footer(
      "Exit status: 0 when the container is there, 1 when the migration failed and was\n"
      "undone, 2 for a wrong command line, 130 when it was cancelled and undone.\n"
      "\n"
      "Example:\n"
      "  qxmigrate root@oldserver --ctid 101 --distribution debian-12 \\\n"
      "    --hostname web --ip 192.0.2.10/24 --stop-service nginx");
}

int run(const Settings& settings) {
  boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> params;
  try {
    params = agent::makeParams(settings.options);
  } catch (const std::exception& problem) {
    fprintf(stderr, "qxmigrate: %s\n", problem.what());
    return exitUsage;
  }
  agent::setLogLevel(1 + settings.verbosity);
  const int stopFd = agent::catchStopSignals();
  const auto cancel = std::make_shared<agent::CancelToken>();
  const agent::Plugin plugin(settings.library.empty() ? agent::Plugin::defaultPath()
                                                      : settings.library);
  agent::Console console(settings.quiet);
  agent::MigrationResult result;
  {
    const CancelOnSignal watcher(stopFd, cancel);
    result = agent::migrate(settings.source, params, console, cancel);
  }
  if (result.succeeded) {
    if (!settings.quiet) printf("Container %lld is ready.\n", settings.options.ctid);
    return 0;
  }
  if (cancel->code() == agent::cancelledByUser) {
    fprintf(stderr, "qxmigrate: cancelled in stage '%s'\n", result.stage.c_str());
    return exitCancelled;
  }
  fprintf(stderr, "qxmigrate: stage '%s' failed: %s\n", result.stage.c_str(), result.text.c_str());
  return exitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Copies a running server into a container of this host.");
  Settings settings;
  describe(app, settings);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? 0 : exitUsage;
  }
  try {
    return run(settings);
  } catch (const std::exception& problem) {
    fprintf(stderr, "qxmigrate: %s\n", problem.what());
    return exitFailed;
  }
}
