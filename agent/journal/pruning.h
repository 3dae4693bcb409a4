// Journals of migrations that are long over go.
#ifndef QX_AGENT_JOURNAL_PRUNING_H
#define QX_AGENT_JOURNAL_PRUNING_H

#include <cstddef>

namespace agent {

/// So many journals are kept of one container's migrations, and of all, the newest ones.
inline constexpr size_t kKeptOfContainer = 20;
inline constexpr size_t kKeptOfAll = 1000;

/// Removes the others. One that is still needed stays beyond these numbers: of a migration
/// that runs or was interrupted, or whose copy is kept, or that made a container which is
/// there; and one that is damaged, of which nobody can tell. Throws host::Error.
void pruneJournals();

}  // namespace agent

#endif
