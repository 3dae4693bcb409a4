// What a process of ours can leave on the node when it dies: programs that it started,
// folders, locks, areas; each found by the mark that it bears.
#ifndef QX_AGENT_JOURNAL_LEFTOVERS_H
#define QX_AGENT_JOURNAL_LEFTOVERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/migration_record.h"
#include "host/process_identity.h"

namespace agent {

/// Where the copy of a failed migration is kept.
std::string keptAreaOf(const std::string& privateArea);

/// 0 when there is nothing.
uint64_t inodeOf(const std::string& path);

/// The record of the migration into this container that kept what is at that path now. Nothing
/// when no journal that can be read tells of it.
std::optional<host::MigrationRecord> keeperOf(unsigned ctid, const std::string& kept);

/// Whether what is at that path, AREA.migrated, is of this migration, which made it or took it
/// back, or of an earlier one, by its journal; false as well when there is nothing.
bool isOfMigrations(const host::MigrationRecord& record, const std::string& kept);

/// Ends the programs that a dead process started and that run on: asked to first,
/// killed after 5 seconds. Throws host::Error when one stays for 10 seconds more.
void stopPrograms(const host::ProcessIdentity& process);

/// Removes the folders for temporary files of processes that are dead.
void removeTemporaryFolders();

/// Removes the lock of a container, and what was to become it, where they name this process,
/// which is known to be dead. Where another one has its pid now they stay: they may be its own.
void removeDeadLock(const std::string& lockDir, unsigned ctid,
                    const host::ProcessIdentity& process);

/// Removes a kept copy and all that is in it. Throws host::Error.
void removeKeptArea(const std::string& path);

}  // namespace agent

#endif
