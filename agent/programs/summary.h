// What a migration came to, and what comes next.
#ifndef QX_AGENT_PROGRAMS_SUMMARY_H
#define QX_AGENT_PROGRAMS_SUMMARY_H

#include <string>

#include "host/migration_record.h"

namespace agent {

/// For a terminal, at the end of a migration that succeeded: lines of at most 80 columns but
/// for names that are longer, with the commands that come next. What the server said cannot
/// command the terminal.
std::string summaryText(const host::MigrationRecord& record);

/// What stays stopped on the server after a migration that succeeded, and the way back to it, in
/// a line; empty when nothing was stopped.
std::string stoppedText(const host::MigrationRecord& record);

}  // namespace agent

#endif
