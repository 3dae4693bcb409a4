// A migration as a page: one file of HTML that loads nothing and runs nothing.
#ifndef QX_AGENT_PAGE_MIGRATION_PAGE_H
#define QX_AGENT_PAGE_MIGRATION_PAGE_H

#include <string>

#include "host/migration_journal.h"

namespace agent {

/// The page. What a server or a user has said is text in it, whatever it is.
std::string migrationPage(const host::MigrationJournal& journal);

}  // namespace agent

#endif
