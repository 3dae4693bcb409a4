#include "agent/journal/resumption.h"

#include <stdexcept>

#include "agent/journal/leftovers.h"
#include "agent/journal/recovery.h"
#include "host/container.h"
#include "host/error.h"
#include "host/file.h"
#include "host/lock.h"

namespace agent {

namespace {

using Say = std::function<void(const std::string&)>;

// Why what that migration copied is of no use; empty when it is.
std::string reasonAgainst(const Attempt& attempt, const host::MigrationRecord& earlier) {
  if (attempt.fresh) return "it is to begin afresh";
  if (earlier.source != attempt.source) return "it was of another source, " + earlier.source;
  if (host::isSameServer(earlier.server, attempt.server)) return "";
  const host::ServerIdentity nothing;
  const bool unknown =
      (earlier.server.machineId == nothing.machineId &&
       earlier.server.hostKey == nothing.hostKey) ||
      (attempt.server.machineId == nothing.machineId && attempt.server.hostKey == nothing.hostKey);
  return unknown ? "it is not known whether it is of the same server"
                 : "it was of another server, which had this address";
}

void finishInterrupted(const Attempt& attempt, const Say& say) {
  for (const host::MigrationJournal& journal : host::readJournals(attempt.ctid).journals) {
    if (!host::isInterrupted(journal.record)) continue;
    const std::string against = reasonAgainst(attempt, journal.record);
    say("An earlier migration into container " + std::to_string(attempt.ctid) +
        " was interrupted at " + journal.record.updated + "." +
        (against.empty() ? "" : " What it copied is of no use here: " + against + "."));
    for (const std::string& text :
         recover(journal, against.empty() ? Copy::kKept : Copy::kRemoved)) {
      say(text);
    }
    if (host::readJournal(journal.name).record.state == host::MigrationState::kSucceeded) {
      const std::string id = std::to_string(attempt.ctid);
      throw std::runtime_error("container " + id + " is there, and complete: start it, or 'qxctl " +
                               "destroy " + id + "' removes it and makes way for another");
    }
  }
}

}  // namespace

void clearTheWay(const Attempt& attempt, const Say& say) {
  finishInterrupted(attempt, say);
  const std::string kept = keptAreaOf(attempt.privateArea);
  const uint64_t inode = inodeOf(kept);
  if (inode == 0) return;
  std::string against = attempt.fresh ? reasonAgainst(attempt, {}) : "";
  const host::JournalFolder folder = host::readJournals(attempt.ctid);
  for (auto journal = folder.journals.rbegin(); journal != folder.journals.rend(); ++journal) {
    const host::MigrationRecord& record = journal->record;
    if (record.keptArea != kept || record.keptAreaInode != inode) continue;
    against = reasonAgainst(attempt, record);
    break;
  }
  if (against.empty()) return;
  const host::ContainerLock lock(host::findContainer(attempt.ctid).lockDir, attempt.ctid,
                                 "removing what an earlier migration kept");
  removeKeptArea(kept);
  say("What an earlier migration had kept in " + kept + " was removed: " + against + ".");
}

}  // namespace agent
