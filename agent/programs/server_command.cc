#include "agent/programs/server_command.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <thread>

#include "agent/framework/plugin.h"
#include "agent/plan/survey_operator.h"
#include "agent/programs/commands.h"
#include "agent/programs/complaint.h"
#include "agent/programs/console.h"
#include "agent/programs/json_lines.h"
#include "agent/programs/logged_view.h"
#include "agent/system/event.h"
#include "agent/system/log_file.h"
#include "agent/system/log_level.h"
#include "agent/system/signals.h"
#include "agent/verify/list_operator.h"
#include "host/process_mark.h"
#include "host/visible.h"

namespace agent {

namespace {

// Cancels the migration at the first signal. A second one gives up the server's end,
// which sees to itself; what was begun on this node is still undone.
class CancelOnSignal {
 public:
  CancelOnSignal(int stopFd, const std::shared_ptr<CancelToken>& token)
      : done_(newEvent()), thread_([this, stopFd, token]() {
          pollfd entries[2] = {{stopFd, POLLIN, 0}, {done_.get(), POLLIN, 0}};
          while (poll(entries, 2, -1) < 0) {
          }
          if (!entries[0].revents) return;
          // Behind what the terminal shows of the key.
          fputc('\n', stderr);
          complain(
              "stopping, and undoing what was done (press Ctrl-C again not to wait for the "
              "server)");
          eventfd_t count;
          eventfd_read(stopFd, &count);
          token->cancel();
          while (poll(entries, 2, -1) < 0) {
          }
          if (!entries[0].revents) return;
          fputc('\n', stderr);
          complain("not waiting for the server any longer");
          token->abandon();
        }) {}
  ~CancelOnSignal() {
    raiseEvent(done_);
    thread_.join();
  }

 private:
  host::Fd done_;
  std::thread thread_;
};

std::unique_ptr<MigrationView> viewOf(Shown shown) {
  if (shown == Shown::kJson) return std::make_unique<JsonLines>();
  return std::make_unique<Console>(shown == Shown::kNothing);
}

int run(const ServerOptions& options, Shown shown, int failed, const ServerWork& work) {
  choosePainting(options.painting);
  if (!options.logFile.empty()) {
    openLogFile(options.logFile);
    writeLog("qxmigrate begins: " + host::visibleLine(options.source.address));
  }
  host::markPrograms();
  setLogLevel(1 + options.verbosity);
  const int stopFd = catchStopSignals();
  const auto cancel = std::make_shared<CancelToken>();
  const Plugin plugin(options.library.empty() ? Plugin::defaultPath() : options.library);
  registerSurveyOperator();
  registerListOperator();
  LoggedView view(viewOf(shown));
  const CancelOnSignal watcher(stopFd, cancel);
  try {
    return work(view, cancel);
  } catch (const std::exception& problem) {
    if (cancel->code() == kCancelledByUser) {
      complain("cancelled");
      return kExitCancelled;
    }
    complain(problem.what());
    return failed;
  }
}

}  // namespace

HelpHeading::HelpHeading(CLI::App& app, const char* text)
    : app_(app), text_(text), before_(app.get_options().size()) {}

HelpHeading::~HelpHeading() {
  const std::vector<CLI::Option*> options = app_.get_options();
  for (size_t i = before_; i < options.size(); ++i) options[i]->group(text_);
}

void describeServer(CLI::App& app, ServerOptions& options) {
  const HelpHeading heading(app, "The server");
  app.add_option("source", options.source.address,
                 "The server: [user@]host[:port] or ssh://[user@]host[:port], reached by ssh;\n"
                 "or unix:PATH of the socket of an agent that runs there already")
      ->required();
  app.add_option("--ssh-option", options.source.transportOptions,
                 "Option for ssh, in the form that its -o takes; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--library", options.library, "The plug-in to load");
}

void describeOutput(CLI::App& app, ServerOptions& options) {
  const HelpHeading heading(app, kOutputHeading);
  // As a function: where a number is bound to a flag, CLI11 2.4 gives it a value that nobody
  // gave, and counts it.
  app.add_flag_function(
      "-v,--verbose", [&](std::int64_t times) { options.verbosity = static_cast<int>(times); },
      "Log more; may be repeated");
  const std::map<std::string, Painting> paintings{
      {"auto", Painting::kAuto}, {"always", Painting::kAlways}, {"never", Painting::kNever}};
  app.add_option("--color", options.painting,
                 "auto, always or never; auto (default): on terminals, without NO_COLOR")
      ->transform(CLI::CheckedTransformer(paintings).description(""))
      ->type_name("WHEN");
  app.add_option("--log-file", options.logFile,
                 "Append all that happens to this file, with the times");
}

void describeMeasuring(CLI::App& app, MeasureSettings& settings) {
  const HelpHeading heading(app, "Measuring");
  app.add_option("--duration", settings.duration, "Seconds to measure for (5); 0 for one sample")
      ->check(CLI::Range(0, 86400));
  app.add_option("--interval", settings.interval, "Seconds between samples (1)")
      ->check(CLI::Range(1, 86400));
  app.add_option("--proc-scale", settings.procScale,
                 "Factor for process, socket, memory and lock limits (1.0)")
      ->check(CLI::Range(0.001, 1000.0));
  app.add_option("--disk-scale", settings.diskScale, "Factor for disk limits (1.0)")
      ->check(CLI::Range(0.001, 1000.0));
}

void describeContainer(CLI::App& app, MigrateOptions& options) {
  const HelpHeading heading(app, "The container");
  app.add_option("--ctid", options.ctid, "ID of the container to create")->required();
  app.add_option("--distribution", options.distribution,
                 "The server's distribution, NAME-VERSION such as debian-12 (default: detected)");
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
}

bool areUsable(MigrateOptions options, bool serverIsAsked) {
  options.distributionRequired = !serverIsAsked;
  try {
    makeParams(options);
    return true;
  } catch (const std::exception& problem) {
    complain(problem.what());
    return false;
  }
}

int withServer(const ServerOptions& options, Shown shown, int failed, const ServerWork& work) {
  try {
    const int status = run(options, shown, failed, work);
    writeLog("qxmigrate ends with " + std::to_string(status));
    return status;
  } catch (const std::exception& problem) {
    complain(problem.what());
    return failed;
  }
}

}  // namespace agent
