#include "agent/programs/summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using agent::summaryText;
using testing::HasSubstr;
using testing::Not;

namespace {

host::MigrationRecord sample() {
  host::MigrationRecord record;
  record.ctid = 101;
  record.source = "root@old";
  record.services = {"nginx", "ticker"};
  record.bytes = 3LL << 29;
  record.files = 12229;
  record.stages = {{"lockVPS", "2026-11-21T22:21:25Z", 0.25, 0},
                   {"rSync", "2026-11-21T22:21:26Z", 63, 0},
                   {"stopServices", "2026-11-21T22:22:29Z", 2, 0},
                   {"rSync2", "2026-11-21T22:22:31Z", 9.5, 0},
                   {"finish", "2026-11-21T22:22:40Z", 0.5, 0}};
  return record;
}

TEST(Summary, TellsWhatItCameToAndWhatComesNext) {
  EXPECT_EQ(summaryText(sample()),
            "Container 101 is ready.\n"
            "  copied    1.5 GiB in 12,229 files, as the plan counted them\n"
            "  took      1 minute 15 seconds\n"
            "  outage    12 seconds so far; stopped on the server: nginx ticker\n"
            "Next:\n"
            "  qxmigrate verify 101    compare it with the server\n"
            "  qxctl start 101         start it; before that, shut the server down if\n"
            "                          the container has its address\n"
            "  qxctl exec 101 bash     look around in it\n"
            "To go back to root@old: qxctl stop 101, and start there nginx ticker\n");
}

TEST(Summary, WhatStaysStoppedIsToldWithTheWayBack) {
  EXPECT_EQ(agent::stoppedText(sample()),
            "these stay stopped on the server: nginx ticker. To go back to root@old: qxctl stop "
            "101, and start there nginx ticker");
}

TEST(Summary, ThereIsNoOutageWhenNothingWasStopped) {
  host::MigrationRecord record = sample();
  record.services.clear();
  EXPECT_THAT(summaryText(record), Not(HasSubstr("outage")));
  EXPECT_EQ(agent::stoppedText(record), "");
  EXPECT_THAT(summaryText(record), HasSubstr("To go back to root@old: qxctl stop 101\n"));
}

TEST(Summary, WithoutAPlanItDoesNotKnowHowMuchWasCopied) {
  host::MigrationRecord record = sample();
  record.bytes = record.files = 0;
  EXPECT_THAT(summaryText(record), Not(HasSubstr("copied")));
}

TEST(Summary, CountsWarnings) {
  host::MigrationRecord record = sample();
  record.warnings = {"one", "two"};
  EXPECT_THAT(summaryText(record),
              HasSubstr("  warnings  2 of the plan: 'qxmigrate show 101' lists them\n"));
}

TEST(Summary, NamesCannotCommandATerminal) {
  host::MigrationRecord record = sample();
  record.source = "root@\x1b[2Jold";
  record.services = {"a\nContainer 102 is ready."};
  EXPECT_THAT(summaryText(record), Not(HasSubstr("\x1b")));
  EXPECT_THAT(summaryText(record), Not(HasSubstr("\nContainer 102")));
}

}  // namespace
