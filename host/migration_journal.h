// The journals of this host's migrations: one file each in one folder.
#ifndef QX_HOST_MIGRATION_JOURNAL_H
#define QX_HOST_MIGRATION_JOURNAL_H

#include <optional>
#include <string>
#include <vector>

#include "host/migration_record.h"

namespace host {

/// Mode 0700, files 0600, all root's.
inline constexpr char kJournalDir[] = "/var/lib/qx/migrations";

/// The variable of a container's configuration that names the migration that wrote
/// the file.
inline constexpr char kMigrationVariable[] = "MIGRATION";

/// A migration's name, "ID-YYYYMMDDTHHMMSSZ" with "-2" and so on where one is taken,
/// and what its journal, the file NAME.json, holds.
struct MigrationJournal {
  std::string name;
  MigrationRecord record;
};

/// A name for a migration that begins now.
std::string newMigrationName(unsigned ctid);

/// Writes a journal, at once and to the disk: whoever reads it, after a crash too,
/// finds the old record or the new one. Makes the folder. While the record says
/// running, two files beside it keep some room, which is used when the disk is full: one to
/// write that the copy begins, the other to write how it ended.
/// Throws Error.
void writeJournal(const MigrationJournal& journal);

/// Throws Error: kNotFound when there is none of that name, kBadConfig when it is
/// damaged, or when others than root could have written it.
MigrationJournal readJournal(const std::string& name);

/// The names of all migrations that have a journal, or of those of one container, oldest
/// first. Throws Error when the folder cannot be read; one that is missing is empty.
std::vector<std::string> journalNames(std::optional<unsigned> ctid = std::nullopt);

/// The container's id in the name of a migration.
std::string containerIn(const std::string& name);

/// Removes a journal; that there is none is no error. Throws Error.
void removeJournal(const std::string& name);

struct JournalFolder {
  std::vector<MigrationJournal> journals;  ///< oldest first
  std::vector<std::string> damaged;        ///< of each that cannot be used: path and reason
};

/// All of them, or those of one container. Throws Error when the folder cannot be
/// read; one that is missing is empty.
JournalFolder readJournals(std::optional<unsigned> ctid = std::nullopt);

/// Whether the record says running and its process does not run any more.
bool isInterrupted(const MigrationRecord& record);

/// What a migration that was interrupted left is to be told of: the newest one of
/// this container, unless its configuration is not that migration's. Damaged journals are passed
/// over. Throws Error.
std::optional<MigrationJournal> interruptedMigration(unsigned ctid);

/// "left by a migration that was interrupted at TIME; qxmigrate clean ID removes it, or
/// run it again"; or that it registers what was complete.
std::string interruptionText(const MigrationRecord& record);

}  // namespace host

#endif
