// Finishing a migration whose process died.
#ifndef QX_AGENT_JOURNAL_RECOVERY_H
#define QX_AGENT_JOURNAL_RECOVERY_H

#include <string>
#include <vector>

#include "host/migration_journal.h"

namespace agent {

/// What becomes of an incomplete copy.
enum class Copy {
  kAsTold,  ///< removed, or kept if the migration was started with keep-on-failure
  kKept,    ///< kept for the next attempt, if there is anything to go on from
  kRemoved,
};

/// Finishes an interrupted migration the way a failure would have: the container is
/// unmounted and removed, or its copy kept; when it had been adapted already it is
/// registered and stays, unless the next attempt goes on from it (kKept) and nobody has
/// registered it. Programs of it that run on are stopped, its lock and its
/// temporary folders go. Touches nothing but what this migration made: not a container
/// that was there before, that has another's configuration, that runs, or that was
/// registered since. Takes the container's lock. When it dies itself the next call goes
/// on.
///
/// Returns what was done, in lines for people; none when another process has finished
/// it meanwhile. Throws host::Error when it cannot be finished now; the journal then
/// says running still.
std::vector<std::string> recover(const host::MigrationJournal& interrupted, Copy copy);

}  // namespace agent

#endif
