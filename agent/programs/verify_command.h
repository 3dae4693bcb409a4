// "qxmigrate verify", and the same at the end of a migration.
#ifndef QX_AGENT_PROGRAMS_VERIFY_COMMAND_H
#define QX_AGENT_PROGRAMS_VERIFY_COMMAND_H

#include <memory>
#include <optional>
#include <string>

#include "agent/programs/planning.h"
#include "agent/verify/comparison.h"

namespace agent {

/// Exit statuses of a comparison.
inline constexpr int kVerifySame = 0;
inline constexpr int kVerifyDiffers = 1;
inline constexpr int kVerifyImpossible = 3;

struct VerifyOptions {
  std::string ctid;    ///< as it was typed
  std::string source;  ///< empty: as in the journal
  std::vector<std::string> sshOptions;
  bool json = false;
  bool all = false;  ///< tell every difference
};

/// Compares the newest container of this id with the server that it was made from.
/// Prints what it finds; returns an exit status. Throws std::runtime_error or host::Error
/// when no comparison is possible.
int verifyContainer(const VerifyOptions& options, MigrationView& view,
                    const std::shared_ptr<CancelToken>& cancel);

/// The same at the end of a migration that has succeeded, over its connection.
TreeComparison verifyMigration(unsigned ctid, Planning& planning, MigrationView& view,
                               CancelToken& cancel);

}  // namespace agent

#endif
