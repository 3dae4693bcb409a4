#include "agent/journal/journal_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;
using testing::Not;

host::MigrationJournal sample() {
  host::MigrationJournal journal{"101-20261121T222125Z", {}};
  journal.record.ctid = 101;
  journal.record.source = "root@old";
  journal.record.state = host::MigrationState::kFailed;
  journal.record.stages = {{"lockVPS", "2026-11-21T22:21:25Z", 0.25, 0},
                           {"rSync", "2026-11-21T22:21:26Z", 1, 5},
                           {"finish", "2026-11-21T22:21:27Z", 0, std::nullopt}};
  journal.record.failedStage = "rSync";
  journal.record.error = "rsync \x1b[31mfailed";
  journal.record.texts = {
      "a\xC2\x9b"
      "31mline"};
  return journal;
}

TEST(JournalText, ThePageHasStagesAndTheFailure) {
  const std::string page = agent::journalText(sample());
  EXPECT_THAT(page, HasSubstr("migration 101-20261121T222125Z: failed\n"));
  EXPECT_THAT(page, HasSubstr("    lockVPS            2026-11-21T22:21:25Z       0.2 s  done\n"));
  EXPECT_THAT(page, HasSubstr("    rSync              2026-11-21T22:21:26Z       1.0 s  FAILED\n"));
  EXPECT_THAT(page, HasSubstr("    finish             2026-11-21T22:21:27Z  not ended\n"));
}

TEST(JournalText, WhatTheServerSaidCannotCommandATerminal) {
  const std::string page = agent::journalText(sample());
  EXPECT_THAT(page, HasSubstr("rSync: rsync \\x1b[31mfailed"));
  EXPECT_THAT(page, Not(HasSubstr("\xC2\x9b")));
  EXPECT_THAT(page, Not(HasSubstr("\x1b")));
}

TEST(JournalText, OneThatRunsOnWithoutItsProcessIsInterrupted) {
  host::MigrationJournal journal = sample();
  journal.record.state = host::MigrationState::kRunning;
  EXPECT_EQ(agent::standingOf(journal.record), "interrupted");
  journal.record.process = host::thisProcess();
  EXPECT_EQ(agent::standingOf(journal.record), "running");
  EXPECT_THAT(
      agent::journalList({journal}),
      HasSubstr("101-20261121T222125Z          running      finish              root@old\n"));
}

}  // namespace
