// Verifying at the end of a migration; the command "verify" is among the others (commands.h).
#ifndef QX_AGENT_PROGRAMS_VERIFY_COMMAND_H
#define QX_AGENT_PROGRAMS_VERIFY_COMMAND_H

#include "agent/programs/planning.h"
#include "agent/verify/comparison.h"

namespace agent {

/// Compares the container with its server at the end of a migration that has succeeded,
/// over its connection. Throws std::runtime_error or host::Error when that is impossible.
TreeComparison verifyMigration(unsigned ctid, Planning& planning, MigrationView& view,
                               CancelToken& cancel);

}  // namespace agent

#endif
