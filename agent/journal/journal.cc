#include "agent/journal/journal.h"

#include "agent/journal/leftovers.h"
#include "host/clock.h"
#include "host/container.h"
#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"

namespace agent {

namespace {

// What the migration will find in the private area, which it may take back from a kept one.
void noteRegistration(host::MigrationRecord& record) {
  const std::string& area = record.privateArea;
  const std::string found = (record.hadPrivateArea ? area : keptAreaOf(area)) + "/";
  record.registrationInode = inodeOf(found + host::kRegistrationMarker);
  record.hadAdaptMarker = host::exists(found + host::kAdaptMarker);
}

}  // namespace

Journal::Journal(host::MigrationRecord record) {
  record.process = host::thisProcess();
  record.begun = record.updated = host::utcNow();
  record.configuration = host::configPath(record.ctid);
  record.hadConfiguration = host::exists(record.configuration);
  record.hadPrivateArea = host::exists(record.privateArea);
  record.keptInode = inodeOf(keptAreaOf(record.privateArea));
  noteRegistration(record);
  record.state = host::MigrationState::kRunning;
  journal_ = {host::newMigrationName(record.ctid), std::move(record)};
  host::writeJournal(journal_);
}

void Journal::stageBegins(const std::string& stage) {
  journal_.record.stages.push_back({stage, host::utcNow(), 0, std::nullopt});
  write();
}

void Journal::stageEnds(const std::string& stage, int result, double seconds) {
  auto& stages = journal_.record.stages;
  if (stages.empty() || stages.back().name != stage || stages.back().result) return;
  stages.back().seconds = seconds;
  stages.back().result = result;
  write();
}

void Journal::text(const std::string& line) {
  auto& texts = journal_.record.texts;
  texts.push_back(line);
  if (texts.size() > host::kMaxRecordTexts) texts.erase(texts.begin());
}

void Journal::leftOut(const host::CopyReport& report) {
  journal_.record.leftOut = report;
  write();
}

void Journal::end(host::MigrationState state, const std::string& stage, const std::string& error) {
  host::MigrationRecord& record = journal_.record;
  record.state = state;
  record.failedStage = stage;
  record.error = error;
  const std::string kept = keptAreaOf(record.privateArea);
  const bool has = state != host::MigrationState::kSucceeded && isOfMigrations(record, kept);
  record.keptAreaInode = has ? inodeOf(kept) : 0;
  record.keptArea = has ? kept : "";
  write();
}

void Journal::write() {
  journal_.record.updated = host::utcNow();
  try {
    host::writeJournal(journal_);
    problem_.clear();
  } catch (const host::Error& problem) {
    problem_ = problem.what();
  }
}

}  // namespace agent
