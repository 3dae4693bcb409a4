#include "agent/journal/resumption.h"

#include <optional>
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

bool isKnown(const host::ServerIdentity& server) {
  return !server.machineId.empty() || !server.hostKey.empty();
}

// Why this attempt must not go on from what that migration copied; empty when it may. How the
// administrator calls the server does not matter.
std::string reasonAgainst(const Attempt& attempt, const host::MigrationRecord& earlier) {
  if (host::isSameServer(earlier.server, attempt.server)) return "";
  const bool known = isKnown(earlier.server) && isKnown(attempt.server);
  return known ? "is of another server (" + earlier.source + "), by machine id or host key"
               : "may be of another server (" + earlier.source +
                     "): neither machine id nor host key tells";
}

// Whether there is something of an interrupted migration that the next could go on from.
bool hasCopied(const host::MigrationJournal& interrupted) {
  const host::MigrationRecord& record = interrupted.record;
  if (record.keptInode != 0 && inodeOf(record.privateArea) == record.keptInode) return true;
  const host::Container container = host::findContainer(record.ctid);
  return host::hasBegun(record, "rSync") && container.configured &&
         container.var(host::kMigrationVariable) == interrupted.name;
}

[[noreturn]] void refuse(const std::string& what, const std::string& reason) {
  throw std::runtime_error(what + " " + reason +
                           ". Nothing was changed: --fresh removes it and begins anew, another "
                           "--ctid leaves it");
}

void finishInterrupted(const Attempt& attempt, const Say& say) {
  for (const host::MigrationJournal& journal : host::readJournals(attempt.ctid).journals) {
    if (!host::isInterrupted(journal.record)) continue;
    say("An earlier migration into container " + std::to_string(attempt.ctid) +
        " was interrupted at " + journal.record.updated + "." +
        (attempt.fresh ? " What it copied is of no use here: it is to begin afresh." : ""));
    for (const std::string& text : recover(journal, attempt.fresh ? Copy::kRemoved : Copy::kKept)) {
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

void requireSameServer(const Attempt& attempt) {
  if (attempt.fresh) return;
  for (const host::MigrationJournal& journal : host::readJournals(attempt.ctid).journals) {
    if (!host::isInterrupted(journal.record) || !hasCopied(journal)) continue;
    const std::string against = reasonAgainst(attempt, journal.record);
    if (against.empty()) continue;
    refuse("what an interrupted migration copied into container " + std::to_string(attempt.ctid),
           against);
  }
  const std::string kept = keptAreaOf(attempt.privateArea);
  const std::optional<host::MigrationRecord> keeper = keeperOf(attempt.ctid, kept);
  const std::string against = keeper ? reasonAgainst(attempt, *keeper) : "";
  if (!against.empty()) refuse("what an earlier migration kept in " + kept, against);
}

bool clearTheWay(const Attempt& attempt, const Say& say) {
  requireSameServer(attempt);
  finishInterrupted(attempt, say);
  const std::string kept = keptAreaOf(attempt.privateArea);
  if (inodeOf(kept) == 0) return false;
  if (!attempt.fresh) return true;
  const host::ContainerLock lock(host::findContainer(attempt.ctid).lockDir, attempt.ctid,
                                 "removing what an earlier migration kept");
  removeKeptArea(kept);
  say("What an earlier migration had kept in " + kept + " was removed: it is to begin afresh.");
  return false;
}

}  // namespace agent
