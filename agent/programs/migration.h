// Running one migration on the node.
#ifndef QX_AGENT_PROGRAMS_MIGRATION_H
#define QX_AGENT_PROGRAMS_MIGRATION_H

#include <memory>
#include <string>

#include "agent/programs/migration_view.h"
#include "agent/system/cancel.h"
#include "agent/wire/request_context.h"
#include "framework/migrate_params.h"
#include "host/copy_report.h"
#include "host/migration_record.h"

namespace agent {

/// How a migration ended.
struct MigrationResult {
  bool succeeded = false;
  /// The container is complete all the same, and stays: only the server's end could not be
  /// told so. It starts its services again, as after a failure.
  bool unconfirmed = false;
  bool containerIsThere() const { return succeeded || unconfirmed; }
  /// The node's end had finished when it turned out that the container is not there for good
  /// (see settled.h): its remains are nobody's.
  bool unsettled = false;
  /// Error code and text of the failure. The stage is the one that failed; when the
  /// controller itself stopped between two stages, it is "after STAGE".
  int code = 0;
  std::string stage;
  std::string text;
  /// The server's end was begun, and could not be told to undo its part.
  bool serverLeft = false;
  /// What the last copy has left out.
  host::CopyReport leftOut;
  /// What its journal says of it, when it has one.
  host::MigrationRecord record;
};

/// Migrates the server behind the agent at `source` (see connect.h)
/// with this process as the node's agent. The plug-in must be loaded. `cancel`
/// stops it: what runs is stopped and both ends are finished before it returns.
MigrationResult migrate(const QXL::QXLConnectionInfo& source,
                        const boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams>& params,
                        const CopyRules& rules, MigrationView& view,
                        const std::shared_ptr<CancelToken>& cancel);

}  // namespace agent

#endif
