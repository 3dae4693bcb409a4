#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "agent/plan/make_plan.h"
#include "agent/plan/plan_text.h"
#include "agent/plan/quota_checks.h"
#include "agent/plan/unreported_limits.h"
#include "agent/programs/commands.h"
#include "agent/programs/complaint.h"
#include "agent/programs/copy_options.h"
#include "agent/programs/journaled_migration.h"
#include "agent/programs/json_lines.h"
#include "agent/programs/last_copy.h"
#include "agent/programs/paint.h"
#include "agent/programs/planning.h"
#include "agent/programs/server_command.h"
#include "agent/programs/summary.h"
#include "agent/programs/verify_command.h"
#include "agent/verify/verify_text.h"

namespace agent {

namespace {

struct MigrateSettings {
  ServerOptions server;
  MigrateOptions options;
  MeasureSettings measure;
  CopyOptions copy;
  bool force = false;
  bool noMeasure = false;
  bool fresh = false;
  bool verify = false;
  bool acceptPartial = false;
  bool quiet = false;
  bool json = false;
  std::optional<MigrationResult> ended;  ///< how it has, once it has begun

  Shown shown() const {
    if (json) return Shown::kJson;
    return quiet ? Shown::kNothing : Shown::kText;
  }
};

// "stage 'rSync' failed"; between two stages, "failed after stage 'getFreeDiskSpace'".
std::string placeText(const std::string& stage) {
  constexpr std::string_view kAfter = "after ";
  if (!stage.starts_with(kAfter)) return "stage '" + stage + "' failed";
  return "failed after stage '" + stage.substr(kAfter.size()) + "'";
}

int tellEnd(const MigrateSettings& settings, const MigrationResult& result,
            const CancelToken& cancel) {
  const std::string id = std::to_string(settings.options.ctid);
  if (result.containerIsThere() && !result.leftOut.isComplete()) {
    complain("warning: container " + id + " is not complete: " + countText(result.leftOut) +
             " ('qxmigrate show " + id + "' lists what)");
  }
  if (result.succeeded) {
    if (settings.shown() == Shown::kText) present(summaryText(result.record), stdout);
    return 0;
  }
  if (result.unconfirmed) {
    complain("container " + id + " is there, but the server could not be told so: " + result.text);
    complain(
        "the server starts again what was stopped, unless only its answer was lost: look there " +
        ("what runs, and stop that before container " + id) +
        " is started; what it changes until then is not in the container ('qxctl destroy " + id +
        "', and the same migration again, bring all of it)");
    return kExitUnconfirmed;
  }
  const bool cancelled = cancel.code() == kCancelledByUser;
  if (cancelled) {
    complain("cancelled in stage '" + result.stage + "'");
  } else {
    complain(placeText(result.stage) + ": " + result.text);
  }
  if (result.serverLeft) {
    complain(
        "the server could not be told, and undoes its part by itself: it starts again what was "
        "stopped, and removes the agent");
  }
  return cancelled ? kExitCancelled : kExitFailed;
}

// Says what it finds.
bool isVerified(const MigrateSettings& settings, Planning& planning, MigrationView& view,
                CancelToken& cancel) {
  const long long ctid = settings.options.ctid;
  TreeComparison found;
  try {
    found = verifyMigration(static_cast<unsigned>(ctid), planning, view, cancel);
  } catch (const std::exception& problem) {
    complain("container " + std::to_string(ctid) +
             " is there, but was not verified: " + problem.what());
    return false;
  }
  if (settings.json) {
    tellJsonVerified(found);
  } else if (found.unexpected != 0 || !settings.quiet) {
    present(comparisonText(found, false), found.unexpected != 0 ? stderr : stdout);
  }
  if (found.unexpected == 0) return true;
  complain("container " + std::to_string(ctid) + " is there, but it is not what the server is");
  return false;
}

Attempt attemptIn(const MigrateSettings& settings, const host::ServerIdentity& server) {
  MigrateOptions options = settings.options;
  options.distributionRequired = false;
  return attemptOf(*makeParams(options), server, settings.fresh);
}

// A copy that an earlier attempt had kept is not lost with this one.
void makeWay(MigrateSettings& settings, const Attempt& attempt, MigrationView& view) {
  const bool goesOn = clearTheWay(attempt, [&](const std::string& text) { view.line(text); });
  if (!goesOn || settings.options.keepOnFailure) return;
  settings.options.keepOnFailure = true;
  view.line(
      "It goes on from what an earlier attempt copied, which is kept if this one fails, too.");
}

int migrate(MigrateSettings& settings, const CopyReportFile& report, MigrationView& view,
            const std::shared_ptr<CancelToken>& cancel) {
  // Keeps the connection, which the migration shares.
  std::unique_ptr<Planning> planning;
  try {
    planning = std::make_unique<Planning>(settings.server.source, view, cancel);
  } catch (const std::runtime_error& problem) {
    MigrationResult& result = settings.ended.emplace();
    result.stage = "connect";
    result.text = problem.what();
    return tellEnd(settings, result, *cancel);
  }
  JournalFacts facts;
  std::vector<OwnerLimits> unreported;
  facts.server = planning->identify();
  // Told before the server is measured, which takes long.
  const Attempt attempt = attemptIn(settings, facts.server);
  requireSameServer(attempt);
  if (!settings.noMeasure) {
    PlanFacts found = planning->gather(settings.options, settings.measure);
    found.node.keptIsRemoved = settings.fresh;
    if (const auto* quotas = travellingQuotas(found.survey)) unreported = quotas->unreported;
    const Plan made = makePlan(found);
    facts.bytes = made.bytes;
    facts.files = made.files;
    facts.resources = figuresOf(made.limits);
    for (const Finding& finding : made.findings) {
      if (finding.severity != Severity::kNote) facts.warnings.push_back(finding.text);
    }
    const bool blocked = made.verdict == Verdict::kBlocked;
    if (settings.json) {
      tellJsonPlan(found, made);
    } else if (blocked || !settings.quiet) {
      present(verdictText(made), blocked && !settings.force ? stderr : stdout);
    }
    if (blocked && !settings.force) {
      complain("the plan is blocked, and nothing was changed; --force migrates all the same");
      return kExitBlocked;
    }
  }
  makeWay(settings, attempt, view);
  view.expect({facts.bytes, !settings.options.services.empty()});
  const auto params = makeParams(settings.options);
  const CopyRules rules{report.path(), std::to_string(settings.options.ctid),
                        settings.acceptPartial};
  const MigrationResult& result = settings.ended.emplace(
      migrateWithJournal(settings.server.source, params, rules, facts, view, cancel));
  if (!result.containerIsThere()) return tellEnd(settings, result, *cancel);
  addUnreportedLimits(settings.options.ctid, unreported,
                      [&](const std::string& text) { view.line(text); });
  if (settings.verify && result.succeeded && !isVerified(settings, *planning, view, *cancel)) {
    const std::string stopped = stoppedText(result.record);
    if (!stopped.empty()) complain(stopped);
    return kExitFailed;
  }
  return tellEnd(settings, result, *cancel);
}

void describeMigration(CLI::App& app, MigrateSettings& settings) {
  const HelpHeading heading(app, "The migration");
  app.add_flag("--force", settings.force, "Migrate even if the plan is blocked");
  app.add_flag("--no-measure", settings.noMeasure,
               "Neither measure nor plan: --distribution is then required, limits come from\n"
               "--config and the options only, and the disk is unlimited without them; disk\n"
               "limits of users and groups that own nothing are not copied");
  app.add_flag("--keep-on-failure", settings.options.keepOnFailure,
               "When the migration fails, keep what was copied for a later attempt");
  app.add_flag("--fresh", settings.fresh,
               "Start from scratch: remove what an earlier attempt has copied (default: continue\n"
               "from it if it is of the same server)");
  app.add_flag("--accept-partial", settings.acceptPartial,
               "Go on without files that cannot be copied, and say which (default: the second\n"
               "copy is made once more, and the migration fails if it is incomplete again)");
  app.add_flag("--verify", settings.verify,
               "Compare the container with the server once the migration is complete");
  describeCopy(app, settings.copy);
}

}  // namespace

Run describeMigrate(CLI::App& app) {
  const auto settings = std::make_shared<MigrateSettings>();
  describeServer(app, settings->server);
  describeContainer(app, settings->options);
  describeMeasuring(app, settings->measure);
  describeMigration(app, *settings);
  describeOutput(app, settings->server);
  auto* const quiet =
      app.add_flag("-q,--quiet", settings->quiet, "Show errors only")->group(kOutputHeading);
  app.add_flag("--json", settings->json, "Print JSON, one object per line, as it goes")
      ->group(kOutputHeading)
      ->excludes(quiet);
  app.footer(
      "Exit status: 0 when the container is there, 1 when the migration failed and was\n"
      "undone or the container differs (--verify), 2 when the plan is blocked and nothing\n"
      "was changed, 3 when the container is there but the server has not confirmed that it\n"
      "was told (look there whether its services run), 64 for a wrong command line, 130 when\n"
      "it was cancelled and undone.");
  return [settings]() {
    // What is wrong in the options is told before the server is bothered.
    if (!areUsable(settings->options, !settings->noMeasure)) return kExitUsage;
    // As long as there are no threads, and before anything is made.
    std::optional<CopyReportFile> report;
    try {
      MigrateOptions options = settings->options;
      options.distributionRequired = false;
      const std::string warning = prepareNode(*makeParams(options));
      if (!warning.empty()) complain(warning);
      report.emplace();
      announceCopy(settings->copy);
    } catch (const std::exception& problem) {
      complain(problem.what());
      return kExitFailed;
    }
    const int status = withServer(settings->server, settings->shown(), kExitFailed,
                                  [&](MigrationView& view, const auto& cancel) {
                                    return migrate(*settings, *report, view, cancel);
                                  });
    if (settings->json) {
      tellJsonEnd(settings->options.ctid, status, settings->ended ? &*settings->ended : nullptr);
    }
    return status;
  };
}

}  // namespace agent
