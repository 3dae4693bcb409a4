// What a migration came to, and what comes next.
#ifndef QX_AGENT_PROGRAMS_SUMMARY_H
#define QX_AGENT_PROGRAMS_SUMMARY_H

#include <optional>
#include <string>

#include "host/migration_record.h"

namespace agent {

/// Seconds from the stage that stopped the server's services to the end of the last stage;
/// nothing, when none were named or that stage has not succeeded.
std::optional<double> outageSeconds(const host::MigrationRecord& record);

/// For a terminal, at the end of a migration that succeeded: lines of at most 80 columns but
/// for names that are longer, with the commands that come next. What the server said cannot
/// command the terminal.
std::string summaryText(const host::MigrationRecord& record);

}  // namespace agent

#endif
