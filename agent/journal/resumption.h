// What a migration that begins does with what earlier ones of the same container left.
#ifndef QX_AGENT_JOURNAL_RESUMPTION_H
#define QX_AGENT_JOURNAL_RESUMPTION_H

#include <functional>
#include <string>

#include "host/migration_record.h"

namespace agent {

struct Attempt {
  unsigned ctid = 0;
  std::string source;
  host::ServerIdentity server;
  std::string privateArea;
  bool fresh = false;  ///< go on from nothing
};

/// Clears the way for a migration: finishes interrupted ones of this container, and
/// leaves of what they and failed ones copied only what is of the same source and
/// known to be of the same server, as AREA.migrated. What no journal tells of stays,
/// unless it is to begin afresh. `say` gets lines for people. Throws host::Error, and
/// std::runtime_error when what was interrupted has turned out to be complete.
void clearTheWay(const Attempt& attempt, const std::function<void(const std::string&)>& say);

}  // namespace agent

#endif
