// Writing down what a migration does, as it does it.
#ifndef QX_AGENT_JOURNAL_JOURNAL_H
#define QX_AGENT_JOURNAL_JOURNAL_H

#include <string>

#include "host/migration_journal.h"

namespace agent {

/// The journal of a migration that this process runs. It is on the disk before and
/// after each stage. Not for several threads.
class Journal {
 public:
  /// Begins a migration: completes the record (process, times, what there was before)
  /// and writes it. The record must have its container id, private area and lock.
  /// Throws host::Error when it cannot be written: what cannot be undone after a crash
  /// must not begin.
  explicit Journal(host::MigrationRecord record);

  /// The migration's name.
  const std::string& name() const { return journal_.name; }
  const host::MigrationRecord& record() const { return journal_.record; }

  void stageBegins(const std::string& stage);
  void stageEnds(const std::string& stage, int result, double seconds);
  /// A line that people were shown; written with the next stage.
  void text(const std::string& line);
  /// What the last copy has left out; replaces what was told before.
  void leftOut(const host::CopyReport& report);

  /// Ends it, and notes AREA.migrated, if that is this migration's work or an earlier one's.
  /// Stage and error are those of a failure, or empty.
  void end(host::MigrationState state, const std::string& stage, const std::string& error);

  /// Why it could not be written since it was begun; empty when all is well. A disk
  /// that fills up must not stop a migration that ends well without.
  const std::string& problem() const { return problem_; }

 private:
  void write();

  host::MigrationJournal journal_;
  std::string problem_;
};

}  // namespace agent

#endif
