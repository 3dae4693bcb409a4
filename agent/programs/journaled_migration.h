// A migration that is written down, and that goes on from an earlier one.
#ifndef QX_AGENT_PROGRAMS_JOURNALED_MIGRATION_H
#define QX_AGENT_PROGRAMS_JOURNALED_MIGRATION_H

#include <memory>
#include <string>
#include <vector>

#include "agent/journal/resumption.h"
#include "agent/programs/migration.h"
#include "host/migration_record.h"

namespace agent {

/// What a journal is told beside the parameters.
struct JournalFacts {
  host::ServerIdentity server;
  long long bytes = 0, files = 0;  ///< to be copied; 0: not counted
  std::vector<host::ResourceFigures> resources;
  std::vector<std::string> warnings;
};

/// Looks whether this node can receive into the container's places, and has every rsync that this
/// process will run keep the disk's reserve (RESERVE). Returns a warning, or nothing; throws
/// std::runtime_error when it cannot. To be called while there is one thread.
std::string prepareNode(const QXA::QXAMigrateP2VSerializerParams& params);

/// A migration of that server into that container, as those that went before see it (see
/// agent/journal/resumption.h).
Attempt attemptOf(const QXA::QXAMigrateP2VSerializerParams& params,
                  const host::ServerIdentity& server, bool fresh);

/// migrate(), with a journal, whose name goes into the container's configuration. A
/// journal that cannot be begun is a failure before anything is done.
MigrationResult migrateWithJournal(
    const QXL::QXLConnectionInfo& source,
    const boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams>& params, const CopyRules& rules,
    const JournalFacts& facts, MigrationView& view, const std::shared_ptr<CancelToken>& cancel);

}  // namespace agent

#endif
