// What a migration that begins does with what earlier ones of the same container left.
#ifndef QX_AGENT_JOURNAL_RESUMPTION_H
#define QX_AGENT_JOURNAL_RESUMPTION_H

#include <functional>
#include <string>

#include "host/migration_record.h"

namespace agent {

struct Attempt {
  unsigned ctid = 0;
  host::ServerIdentity server;
  std::string privateArea;
  bool fresh = false;  ///< go on from nothing
};

/// Looks whether this attempt may go on from what interrupted and failed ones of this
/// container copied: they were of a server that is known to be the same, or it is to begin
/// afresh, or no journal tells of it. Changes nothing. Throws std::runtime_error, which says
/// what to do, when it may not.
void requireSameServer(const Attempt& attempt);

/// Clears the way for a migration that may: finishes interrupted ones of this container,
/// and leaves what they and failed ones copied as AREA.migrated, unless it is to begin
/// afresh. Returns whether there is such a copy, for the migration to go on from. `say` gets
/// lines for people. Throws host::Error, and std::runtime_error when what was interrupted has
/// turned out to be complete, or as requireSameServer.
bool clearTheWay(const Attempt& attempt, const std::function<void(const std::string&)>& say);

}  // namespace agent

#endif
