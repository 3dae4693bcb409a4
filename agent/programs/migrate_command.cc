#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>

#include "agent/plan/make_plan.h"
#include "agent/plan/plan_text.h"
#include "agent/plan/quota_checks.h"
#include "agent/plan/unreported_limits.h"
#include "agent/programs/commands.h"
#include "agent/programs/journaled_migration.h"
#include "agent/programs/last_copy.h"
#include "agent/programs/planning.h"
#include "agent/programs/server_command.h"
#include "agent/programs/verify_command.h"
#include "agent/verify/verify_text.h"
#include "host/visible.h"

namespace agent {

namespace {

constexpr int kExitBlocked = 2;

struct Settings {
  ServerOptions server;
  MigrateOptions options;
  MeasureSettings measure;
  bool force = false;
  bool noMeasure = false;
  bool fresh = false;
  bool verify = false;
  bool acceptPartial = false;
  bool quiet = false;
};

int tellEnd(const Settings& settings, const MigrationResult& result, const CancelToken& cancel) {
  if (result.succeeded) {
    if (!result.leftOut.isComplete()) {
      fprintf(stderr,
              "qxmigrate: warning: container %lld is not complete: %s ('qxmigrate show %lld' lists "
              "what)\n",
              settings.options.ctid, countText(result.leftOut).c_str(), settings.options.ctid);
    }
    if (!settings.quiet) printf("Container %lld is ready.\n", settings.options.ctid);
    return 0;
  }
  if (cancel.code() == kCancelledByUser) {
    fprintf(stderr, "qxmigrate: cancelled in stage '%s'\n", result.stage.c_str());
    return kExitCancelled;
  }
  fprintf(stderr, "qxmigrate: stage '%s' failed: %s\n", result.stage.c_str(),
          host::visibleLines(result.text).c_str());
  return kExitFailed;
}

// Says what it finds.
bool isVerified(const Settings& settings, Planning& planning, MigrationView& view,
                CancelToken& cancel) {
  const long long ctid = settings.options.ctid;
  TreeComparison found;
  try {
    found = verifyMigration(static_cast<unsigned>(ctid), planning, view, cancel);
  } catch (const std::exception& problem) {
    fprintf(stderr, "qxmigrate: container %lld is there, but was not verified: %s\n", ctid,
            host::visibleLines(problem.what()).c_str());
    return false;
  }
  if (found.unexpected != 0 || !settings.quiet) {
    fputs(comparisonText(found, false).c_str(), found.unexpected != 0 ? stderr : stdout);
  }
  if (found.unexpected == 0) return true;
  fprintf(stderr, "qxmigrate: container %lld is there, but it is not what the server is\n", ctid);
  return false;
}

int migrate(Settings& settings, const CopyReportFile& report, MigrationView& view,
            const std::shared_ptr<CancelToken>& cancel) {
  // Keeps the connection, which the migration shares.
  std::unique_ptr<Planning> planning;
  try {
    planning = std::make_unique<Planning>(settings.server.source, view, cancel);
  } catch (const std::runtime_error& problem) {
    MigrationResult result;
    result.stage = "connect";
    result.text = problem.what();
    return tellEnd(settings, result, *cancel);
  }
  JournalFacts facts;
  std::vector<OwnerLimits> unreported;
  facts.server = planning->identify();
  {
    MigrateOptions options = settings.options;
    options.distributionRequired = false;
    clearTheWay(settings.server.source, *makeParams(options), facts.server, settings.fresh, view);
  }
  if (!settings.noMeasure) {
    const PlanFacts found = planning->gather(settings.options, settings.measure);
    if (const auto* quotas = travellingQuotas(found.survey)) unreported = quotas->unreported;
    const Plan made = makePlan(found);
    facts.bytes = made.bytes;
    facts.files = made.files;
    for (const Finding& finding : made.findings) {
      if (finding.severity != Severity::kNote) facts.warnings.push_back(finding.text);
    }
    const bool blocked = made.verdict == Verdict::kBlocked;
    if (blocked || !settings.quiet) {
      fputs(verdictText(made).c_str(), blocked && !settings.force ? stderr : stdout);
    }
    if (blocked && !settings.force) {
      fprintf(stderr,
              "qxmigrate: the plan is blocked, and nothing was changed; --force migrates all the "
              "same\n");
      return kExitBlocked;
    }
  }
  const auto params = makeParams(settings.options);
  const CopyRules rules{report.path(), std::to_string(settings.options.ctid),
                        settings.acceptPartial};
  const MigrationResult result =
      migrateWithJournal(settings.server.source, params, rules, facts, view, cancel);
  if (!result.succeeded) return tellEnd(settings, result, *cancel);
  addUnreportedLimits(settings.options.ctid, unreported,
                      [&](const std::string& text) { view.line(text); });
  if (settings.verify && !isVerified(settings, *planning, view, *cancel)) return kExitFailed;
  return tellEnd(settings, result, *cancel);
}

}  // namespace

Run describeMigrate(CLI::App& app) {
  const auto settings = std::make_shared<Settings>();
  describeServer(app, settings->server);
  describeContainer(app, settings->options);
  describeMeasuring(app, settings->measure);
  app.add_flag("--force", settings->force, "Migrate although the plan is blocked");
  app.add_flag("--no-measure", settings->noMeasure,
               "Neither measure nor plan: --distribution must be given, limits are those of\n"
               "--config and the options, the disk is unlimited otherwise");
  app.add_flag("--keep-on-failure", settings->options.keepOnFailure,
               "When the migration fails, keep what was copied for a later attempt");
  app.add_flag("--fresh", settings->fresh,
               "Begin from nothing: remove what an earlier attempt has copied (default: go on\n"
               "from it when it is of the same server)");
  app.add_flag("--accept-partial", settings->acceptPartial,
               "Go on without files that cannot be copied, and say which (default: the second\n"
               "copy is made once more, and the migration fails if it is incomplete again)");
  app.add_flag("--verify", settings->verify,
               "Compare the container with the server when it is complete");
  app.add_flag("-q,--quiet", settings->quiet, "Show errors only");
  app.footer(
      "Exit status: 0 when the container is there, 1 when the migration failed and was\n"
      "undone or the container differs (--verify), 2 when the plan is blocked and nothing\n"
      "was changed, 64 for a wrong command line, 130 when it was cancelled and undone.\n"
      "\n"
      "Example:\n"
      "  qxmigrate root@oldserver --ctid 101 --stop-service nginx");
  return [settings]() {
    // What is wrong in the options is told before the server is bothered.
    if (!areUsable(settings->options, !settings->noMeasure)) return kExitUsage;
    // As long as there are no threads, and before anything is made.
    std::optional<CopyReportFile> report;
    try {
      MigrateOptions options = settings->options;
      options.distributionRequired = false;
      const std::string warning = prepareNode(*makeParams(options));
      if (!warning.empty()) fprintf(stderr, "qxmigrate: %s\n", warning.c_str());
      report.emplace();
    } catch (const std::exception& problem) {
      fprintf(stderr, "qxmigrate: %s\n", host::visibleLines(problem.what()).c_str());
      return kExitFailed;
    }
    return withServer(settings->server, settings->quiet, kExitFailed,
                      [&](MigrationView& view, const auto& cancel) {
                        return migrate(*settings, *report, view, cancel);
                      });
  };
}

}  // namespace agent
