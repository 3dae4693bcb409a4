#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "agent/plan/plan_json.h"
#include "agent/plan/plan_text.h"
#include "agent/programs/commands.h"
#include "agent/programs/paint.h"
#include "agent/programs/planning.h"
#include "agent/programs/server_command.h"
#include "agent/system/last_error.h"
#include "framework/errors.h"
#include "host/file.h"
#include "host/shell_vars.h"
#include "host/visible.h"

namespace agent {

namespace {

struct CommandSettings {
  ServerOptions server;
  MeasureSettings measure;
  std::string output;
  bool json = false;
};

host::ShellVars variablesOf(const std::string& config) {
  try {
    return host::parseOwnShellVars(config, host::idAsWritten());
  } catch (const std::exception& problem) {
    throw std::runtime_error("the measurement: " + std::string(problem.what()));
  }
}

// What is there is replaced, which a device would not survive. Told before the server is
// bothered.
bool canReplace(const std::string& path) {
  struct stat found;
  return path.empty() || lstat(path.c_str(), &found) != 0 || S_ISREG(found.st_mode);
}

int measure(const CommandSettings& settings, MigrationView& view,
            const std::shared_ptr<CancelToken>& cancel) {
  Planning planning(settings.server.source, view, cancel);
  const Measurement measurement = planning.measure(settings.measure);
  const host::ShellVars config = variablesOf(measurement.config);
  if (!settings.output.empty() &&
      attempt([&]() { host::replaceFileDurably(settings.output, measurement.config, 0644); }) !=
          0) {
    throw std::runtime_error("--output: " + QXL::getErrorMessage());
  }
  const std::string& source = settings.server.source.address;
  if (settings.json) {
    fputs(measurementJson(source, measurement, config).c_str(), stdout);
  } else {
    present(measurementText(source, measurement, config), stdout);
  }
  return 0;
}

}  // namespace

Run describeMeasure(CLI::App& app) {
  const auto settings = std::make_shared<CommandSettings>();
  describeServer(app, settings->server);
  describeMeasuring(app, settings->measure);
  describeOutput(app, settings->server);
  app.add_flag("--json", settings->json, "Print JSON")->group(kOutputHeading);
  app.add_option("--output", settings->output,
                 "Write the computed configuration to this file, for --config");
  app.footer(
      "Exit status: 0 when measured, 1 when that failed, 64 for a wrong command line,\n"
      "130 when it was cancelled.");
  return [settings]() {
    if (!canReplace(settings->output)) {
      fprintf(stderr, "qxmigrate: --output '%s' is not a file\n",
              host::visibleLine(settings->output).c_str());
      return kExitUsage;
    }
    return withServer(
        settings->server, Shown::kNothing, kExitFailed,
        [&](MigrationView& view, const auto& cancel) { return measure(*settings, view, cancel); });
  };
}

}  // namespace agent
