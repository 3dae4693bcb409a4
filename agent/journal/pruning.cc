#include "agent/journal/pruning.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "agent/journal/leftovers.h"
#include "host/container.h"
#include "host/error.h"
#include "host/migration_journal.h"

namespace agent {

namespace {

bool isNeeded(const std::string& name) {
  try {
    const host::MigrationRecord record = host::readJournal(name).record;
    if (record.state == host::MigrationState::kRunning) return true;
    if (!record.keptArea.empty() && inodeOf(record.keptArea) == record.keptAreaInode) return true;
    const host::Container container = host::findContainer(record.ctid);
    return container.configured && container.var(host::kMigrationVariable) == name;
  } catch (const host::Error&) {
    return true;
  }
}

}  // namespace

void pruneJournals() {
  std::vector<std::string> names = host::journalNames();  // oldest first
  std::map<std::string, size_t> ofContainer;
  for (const std::string& name : names) ++ofContainer[host::containerIn(name)];
  size_t all = names.size();
  for (const std::string& name : names) {
    size_t& number = ofContainer[host::containerIn(name)];
    if ((number <= kKeptOfContainer && all <= kKeptOfAll) || isNeeded(name)) continue;
    host::removeJournal(name);
    --number;
    --all;
  }
}

}  // namespace agent
