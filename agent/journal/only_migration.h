// One migration to a container at a time.
#ifndef QX_AGENT_JOURNAL_ONLY_MIGRATION_H
#define QX_AGENT_JOURNAL_ONLY_MIGRATION_H

#include "host/fd.h"

namespace agent {

/// No other process migrates to this container while it lives, nor after: the lock of the
/// container itself is taken some stages later, and a migration that does not get that one
/// unmounts what is mounted. Goes with the process.
class OnlyMigration {
 public:
  /// Throws host::Error: kLocked, naming the process, if there is another one. One object
  /// at a time in a process (fcntl(2), "record locks").
  explicit OnlyMigration(unsigned ctid);

 private:
  host::Fd file_;
};

}  // namespace agent

#endif
