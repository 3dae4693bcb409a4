#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "agent/plan/plan_json.h"
#include "agent/plan/plan_text.h"
#include "agent/programs/commands.h"
#include "agent/programs/output_file.h"
#include "agent/programs/paint.h"
#include "agent/programs/planning.h"
#include "agent/programs/server_command.h"
#include "agent/system/last_error.h"
#include "framework/errors.h"
#include "host/file.h"
#include "host/shell_vars.h"

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
    // Told before the server is bothered.
    if (!settings->output.empty() && !canReplace("--output", settings->output)) return kExitUsage;
    return withServer(
        settings->server, Shown::kNothing, kExitFailed,
        [&](MigrationView& view, const auto& cancel) { return measure(*settings, view, cancel); });
  };
}

}  // namespace agent
