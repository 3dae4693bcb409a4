#include "agent/programs/journaled_migration.h"

#include <cstdlib>
#include <stdexcept>

#include "agent/journal/journal.h"
#include "agent/journal/only_migration.h"
#include "agent/journal/pruning.h"
#include "agent/plan/node_facts.h"
#include "framework/errors.h"
#include "host/error.h"
#include "host/file.h"
#include "host/lock.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/receiving_rsync.h"
#include "host/reserve.h"
#include "host/settings.h"

namespace agent {

namespace {

// Writes down what it passes on.
class JournalingView : public MigrationView {
 public:
  JournalingView(Journal& journal, MigrationView& view) : journal_(journal), view_(view) {}

  void stageBegins(const std::string& stage) override {
    journal_.stageBegins(stage);
    view_.stageBegins(stage);
  }
  void stageEnds(const std::string& stage, int result, double seconds) override {
    journal_.stageEnds(stage, result, seconds);
    view_.stageEnds(stage, result, seconds);
  }
  void line(const std::string& text) override {
    journal_.text(text);
    view_.line(text);
  }
  void expect(const Outlook& outlook) override { view_.expect(outlook); }
  void percent(const std::string& description, int percent) override {
    view_.percent(description, percent);
  }
  void leftOut(const host::CopyReport& report) override {
    journal_.leftOut(report);
    view_.leftOut(report);
  }

 private:
  Journal& journal_;
  MigrationView& view_;
};

host::ShellVars settingsFor(const QXA::QXAMigrateP2VSerializerParams& params) {
  return host::hostSettings(std::to_string(params.ctid));
}

// As the migration decides them: the container's own, or the host's.
std::string placeOf(const QXA::QXAMigrateP2VSerializerParams& params,
                    int (QXA::QXAEnvConfig::*get)(unsigned, std::string&) const,
                    const char* variable) {
  const auto ctid = static_cast<unsigned>(params.ctid);
  std::string place;
  if (((*params.options.config).*get)(ctid, place) == 0 && !place.empty()) return place;
  return host::settingOf(settingsFor(params), variable);
}

std::string privateAreaOf(const QXA::QXAMigrateP2VSerializerParams& params) {
  return placeOf(params, &QXA::QXAEnvConfig::getVEPrivate, "VE_PRIVATE");
}

// For every rsync that this process will run.
void announceReserve(const std::string& privateArea, const host::ShellVars& settings) {
  setenv("QX_RSYNC_RESERVE", std::to_string(host::reservePercent(settings)).c_str(), 1);
  setenv("QX_RSYNC_RESERVE_OF", privateArea.c_str(), 1);
}

host::MigrationRecord recordOf(const std::string& source,
                               const QXA::QXAMigrateP2VSerializerParams& params,
                               const JournalFacts& facts) {
  host::MigrationRecord record;
  record.ctid = static_cast<unsigned>(params.ctid);
  record.source = source;
  record.server = facts.server;
  const QXA::QXAEnvConfig& config = *params.options.config;
  std::optional<QXA::QXADistribution> distribution;
  config.getDistribution(distribution);
  if (distribution) {
    record.distribution = distribution->name;
    if (!distribution->version.empty()) record.distribution += "-" + distribution->version;
  }
  std::optional<QXA::QXAOsTemplate> osTemplate;
  config.getOsTemplate(osTemplate);
  if (osTemplate) record.osTemplate = osTemplate->name;
  record.excludes = params.options.excludes;
  for (const QXL::QXLService& service : params.options.services) {
    record.services.push_back(service.name);
  }
  record.keepOnFailure = params.options.keepOnFailure;
  record.privateArea = privateAreaOf(params);
  record.root = placeOf(params, &QXA::QXAEnvConfig::getVERoot, "VE_ROOT");
  record.lock =
      host::settingOf(settingsFor(params), "LOCKDIR") + "/" + std::to_string(record.ctid) + ".lck";
  record.bytes = facts.bytes;
  record.files = facts.files;
  record.resources = facts.resources;
  record.warnings = facts.warnings;
  return record;
}

// As the node's end does it when a migration fails before its end.
void removeUnsettled(const QXA::QXAMigrateP2VSerializerParams& params, MigrationView& view) {
  const std::string id = std::to_string(params.ctid);
  if (params.options.keepOnFailure) {
    view.line("What there is of container " + id + " stays: 'qxctl destroy " + id +
              "' removes it.");
    return;
  }
  try {
    host::runProgram({host::kQxctl, "destroy", id});
  } catch (const host::Error& problem) {
    view.line("What there is of container " + id + " could not be removed: " + problem.what());
  }
}

// Nobody else works on the container: or else this end would unmount it under their hands
// when it finishes, as it does whether it got the lock or not.
std::string lockProblem(const host::MigrationRecord& record) {
  const std::string lockDir = record.lock.substr(0, record.lock.rfind('/'));
  if (!host::lockHolder(lockDir, record.ctid)) return "";
  const auto holder = host::parseLockHolder(host::readFile(record.lock).value_or(""));
  return "Unable to lock CT " + std::to_string(record.ctid) + " already locked by process #" +
         std::to_string(holder.value_or(0));
}

MigrationResult failureOf(const std::string& stage, const std::string& text) {
  MigrationResult result;
  result.code = -1;
  result.stage = stage;
  result.text = text;
  return result;
}

}  // namespace

std::string prepareNode(const QXA::QXAMigrateP2VSerializerParams& params) {
  const host::ShellVars settings = settingsFor(params);
  announceReserve(privateAreaOf(params), settings);
  // What is made at a refused place could not be removed either.
  const std::string refused = placeProblem(params);
  if (!refused.empty()) throw std::runtime_error("the node refuses a place: " + refused);
  const host::RsyncProblem problem = host::receivingRsyncProblem(settings);
  if (problem.text.empty()) return "";
  if (!problem.tolerable) throw std::runtime_error("the node cannot receive: " + problem.text);
  return "OLD_RSYNC: " + problem.text;
}

Attempt attemptOf(const QXA::QXAMigrateP2VSerializerParams& params,
                  const host::ServerIdentity& server, bool fresh) {
  return {static_cast<unsigned>(params.ctid), server, privateAreaOf(params), fresh};
}

MigrationResult migrateWithJournal(
    const QXL::QXLConnectionInfo& source,
    const boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams>& params, const CopyRules& rules,
    const JournalFacts& facts, MigrationView& view, const std::shared_ptr<CancelToken>& cancel) {
  std::unique_ptr<Journal> journal;
  std::unique_ptr<OnlyMigration> alone;
  try {
    const host::MigrationRecord record = recordOf(source.address, *params, facts);
    alone = std::make_unique<OnlyMigration>(record.ctid);
    const std::string locked = lockProblem(record);
    if (!locked.empty()) return failureOf("lockVPS", locked);
    journal = std::make_unique<Journal>(record);
  } catch (const host::Error& problem) {
    const bool busy = problem.code() == host::ExitCode::kLocked;
    return failureOf(busy ? "lockVPS" : "journal", problem.what());
  }
  try {
    pruneJournals();
  } catch (const host::Error& problem) {
    view.line("Old journals stay: " + std::string(problem.what()));
  }
  // The file that says so is written before anything else of the container is made,
  // and removed after everything else.
  params->options.config->otherVariables[host::kMigrationVariable] = journal->name();
  JournalingView journaling(*journal, view);
  CopyRules known = rules;
  known.place = {journal->record().root, journal->record().privateArea};
  MigrationResult result = migrate(source, params, known, journaling, cancel);
  if (result.unsettled) removeUnsettled(*params, journaling);
  const host::MigrationState state = result.containerIsThere() ? host::MigrationState::kSucceeded
                                     : cancel->code() == kCancelledByUser
                                         ? host::MigrationState::kCancelled
                                         : host::MigrationState::kFailed;
  journal->end(state, result.stage, result.text);
  result.record = journal->record();
  if (!journal->problem().empty()) view.line("The journal is incomplete: " + journal->problem());
  return result;
}

}  // namespace agent
