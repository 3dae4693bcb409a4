#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "agent/plan/make_plan.h"
#include "agent/plan/plan_json.h"
#include "agent/plan/plan_text.h"
#include "agent/programs/commands.h"
#include "agent/programs/paint.h"
#include "agent/programs/planning.h"
#include "agent/programs/server_command.h"

namespace agent {

namespace {

constexpr int kExitWarnings = 1;
constexpr int kExitNoPlan = 3;

struct PlanSettings {
  ServerOptions server;
  MigrateOptions options;
  MeasureSettings measure;
  bool json = false;
};

int plan(PlanSettings& settings, MigrationView& view, const std::shared_ptr<CancelToken>& cancel) {
  Planning planning(settings.server.source, view, cancel);
  const PlanFacts facts = planning.gather(settings.options, settings.measure);
  const Plan made = makePlan(facts);
  if (settings.json) {
    fputs(planJson(facts, made).c_str(), stdout);
  } else {
    present(planText(facts, made), stdout);
  }
  if (made.verdict == Verdict::kBlocked) return kExitBlocked;
  return made.verdict == Verdict::kReady ? 0 : kExitWarnings;
}

}  // namespace

Run describePlan(CLI::App& app) {
  const auto settings = std::make_shared<PlanSettings>();
  describeServer(app, settings->server);
  describeContainer(app, settings->options);
  describeMeasuring(app, settings->measure);
  describeOutput(app, settings->server);
  app.add_flag("--json", settings->json, "Print JSON")->group(kOutputHeading);
  app.footer(
      "Nothing is changed on either side. Exit status: 0 ready, 1 ready with warnings,\n"
      "2 blocked, 3 when no plan could be made, 64 for a wrong command line, 130 when\n"
      "it was cancelled.");
  return [settings]() {
    // What is wrong in the options is told before the server is bothered.
    if (!areUsable(settings->options, true)) return kExitUsage;
    return withServer(
        settings->server, Shown::kNothing, kExitNoPlan,
        [&](MigrationView& view, const auto& cancel) { return plan(*settings, view, cancel); });
  };
}

}  // namespace agent
