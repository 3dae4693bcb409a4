// Journals for people.
#ifndef QX_AGENT_JOURNAL_JOURNAL_TEXT_H
#define QX_AGENT_JOURNAL_JOURNAL_TEXT_H

#include <string>
#include <vector>

#include "host/migration_journal.h"

namespace agent {

/// The word for where a migration stands: that of its state, or "interrupted".
std::string standingOf(const host::MigrationRecord& record);

/// A table with a title line.
std::string journalList(const std::vector<host::MigrationJournal>& journals);

/// A page. What the server said cannot command a terminal.
std::string journalText(const host::MigrationJournal& journal);

}  // namespace agent

#endif
