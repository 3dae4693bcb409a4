// Which journals go, on a scratch host.
#include "agent/journal/pruning.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "agent/journal/leftovers.h"
#include "host/file.h"
#include "host/migration_journal.h"
#include "host/text.h"
#include "support/scratch_host.h"

namespace {

using host::MigrationState;
using test_support::ScratchHost;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr char kKeptArea[] = "/var/lib/qx/private/101.migrated";

ScratchHost hostWithTools() {
  ScratchHost host;
  host.dir("/etc/sysconfig/qx-scripts").dir("/var/lib/qx/private");
  return host;
}

// The name of the one that was begun so many minutes after the first.
std::string nameOf(unsigned ctid, unsigned minute) {
  return host::textf("%u-20261121T%02u%02u00Z", ctid, minute / 60, minute % 60);
}

host::MigrationRecord recordOf(unsigned ctid, MigrationState state) {
  host::MigrationRecord record;
  record.ctid = ctid;
  record.state = state;
  return record;
}

void write(unsigned ctid, unsigned minute, MigrationState state = MigrationState::kFailed) {
  host::writeJournal({nameOf(ctid, minute), recordOf(ctid, state)});
}

TEST(Pruning, TheNewestTwentyOfAContainerStay) {
  hostWithTools().run([] {
    for (unsigned minute = 0; minute < 25; ++minute) write(101, minute);
    write(102, 0);
    agent::pruneJournals();
    const std::vector<std::string> names = host::journalNames(101);
    ASSERT_EQ(names.size(), agent::kKeptOfContainer);
    EXPECT_EQ(names.front(), nameOf(101, 5));
    EXPECT_EQ(names.back(), nameOf(101, 24));
    EXPECT_THAT(host::journalNames(102), ElementsAre(nameOf(102, 0)));
  });
}

TEST(Pruning, TheNewestThousandOfAllStay) {
  hostWithTools().run([] {
    for (unsigned i = 0; i < agent::kKeptOfAll + 3; ++i) write(101 + i % 100, i);
    agent::pruneJournals();
    const std::vector<std::string> names = host::journalNames();
    ASSERT_EQ(names.size(), agent::kKeptOfAll);
    EXPECT_EQ(names.front(), nameOf(104, 3));
  });
}

TEST(Pruning, WhatIsStillNeededStays) {
  hostWithTools().run([] {
    write(101, 0, MigrationState::kRunning);  // interrupted: its process does not run
    write(101, 1, MigrationState::kSucceeded);
    host::replaceFile("/etc/sysconfig/qx-scripts/101.conf",
                      "MIGRATION=\"" + nameOf(101, 1) + "\"\n", 0644);
    host::makeDirectories(kKeptArea);
    host::MigrationRecord keeps = recordOf(101, MigrationState::kFailed);
    keeps.keptArea = kKeptArea;
    keeps.keptAreaInode = agent::inodeOf(kKeptArea);
    host::writeJournal({nameOf(101, 2), keeps});
    keeps.keptAreaInode += 1;  // of another copy, which was removed
    host::writeJournal({nameOf(101, 3), keeps});
    host::replaceFile(std::string(host::kJournalDir) + "/" + nameOf(101, 4) + ".json", "damaged",
                      0600);
    for (unsigned minute = 5; minute < 30; ++minute) write(101, minute);
    agent::pruneJournals();
    const std::vector<std::string> names = host::journalNames();
    for (const unsigned minute : {0u, 1u, 2u, 4u})
      EXPECT_THAT(names, Contains(nameOf(101, minute)));
    EXPECT_THAT(names, Not(Contains(nameOf(101, 3))));
    // They count: nothing grows without end.
    EXPECT_EQ(names.size(), agent::kKeptOfContainer);
    EXPECT_TRUE(host::exists(std::string(host::kJournalDir) + "/." + nameOf(101, 0) + ".spare"));
  });
}

TEST(Pruning, NothingToPruneIsNoError) {
  hostWithTools().run([] { agent::pruneJournals(); });
}

}  // namespace
