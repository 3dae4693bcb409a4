// How long a migration took, and for how long services were down.
#ifndef QX_AGENT_PAGE_OUTAGE_H
#define QX_AGENT_PAGE_OUTAGE_H

#include <cstddef>
#include <optional>
#include <string>

#include "host/migration_record.h"

namespace agent {

/// The place, in the record's list, of the stage that stopped the server's services;
/// nothing, when none were named or that stage has not succeeded.
std::optional<size_t> outageBegin(const host::MigrationRecord& record);

/// Seconds from the beginning of that stage to the end of the last stage.
std::optional<double> outageSeconds(const host::MigrationRecord& record);

/// Of all stages.
double tookSeconds(const host::MigrationRecord& record);

/// "1 minute 15 seconds", for what has taken some time, if a short one.
std::string timeText(double seconds);

}  // namespace agent

#endif
