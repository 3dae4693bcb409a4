#include "quota/quota_report.h"

#include <gtest/gtest.h>

using namespace QuotaMgmt;

namespace {

const char kUserHeading[] =
    "*** Report for user quotas on device /dev/sda1\n"
    "Block grace time: 7days; Inode grace time: 23:59\n"
    "                        Block limits                File limits\n"
    "User            used    soft    hard  grace    used  soft  hard  grace\n"
    "----------------------------------------------------------------------\n";

const char kGroupHeading[] =
    "*** Report for group quotas on device /dev/sda1\n"
    "Block grace time: 2days; Inode grace time: 3days\n"
    "                        Block limits                File limits\n"
    "Group           used    soft    hard  grace    used  soft  hard  grace\n"
    "----------------------------------------------------------------------\n";

struct Parsed {
  explicit Parsed(const std::string& report) {
    EXPECT_EQ(limits_parse_phys(report, &users, &groups), 0);
  }
  Quotas users;
  Quotas groups;
};

// The values of user 5 that a data line gives.
Quota parsedLine(const std::string& line) {
  Parsed parsed(kUserHeading + line + "\n");
  EXPECT_EQ(parsed.users.entries.size(), 1u);
  return parsed.users.entries[5];
}

}  // namespace

TEST(QuotaReport, LimitsWithoutGraces) {
  EXPECT_EQ(parsedLine("#5        --     100    1000    2000              10   100   200       "),
            (Quota{1000, 2000, 0, 100, 200, 0}));
}

TEST(QuotaReport, BlockGraceIsToldFromTheFilesUsed) {
  EXPECT_EQ(parsedLine("#5        +-    1500    1000    2000  6days      10   100   200"),
            (Quota{1000, 2000, 518400, 100, 200, 0}));
  EXPECT_EQ(parsedLine("#5        +-    1500    1000    2000  23:59      10   100   200"),
            (Quota{1000, 2000, 86340, 100, 200, 0}));
}

TEST(QuotaReport, InodeGraceIsTheTokenAfterTheHardLimit) {
  EXPECT_EQ(parsedLine("#5        -+     100    1000    2000             150   100   200  5days"),
            (Quota{1000, 2000, 0, 100, 200, 432000}));
  EXPECT_EQ(parsedLine("#5        ++    1500    1000    2000  6days     150   100   200  00:01  "),
            (Quota{1000, 2000, 518400, 100, 200, 60}));
}

TEST(QuotaReport, ExpiredGraceIsNone) {
  EXPECT_EQ(parsedLine("#5        ++    1500    1000    2000   none     150   100   200   none"),
            (Quota{1000, 2000, 0, 100, 200, 0}));
}

TEST(QuotaReport, LineThatEndsEarlyIsReadAsFarAsItGoes) {
  EXPECT_EQ(parsedLine("#5 -- 1 2"), (Quota{2, 0, 0, 0, 0, 0}));
  EXPECT_EQ(parsedLine("#5 -- 1 2 3 4"), (Quota{2, 3, 0, 0, 0, 0}));
  EXPECT_EQ(parsedLine("#5 -- 1 2 3 4 5 6"), (Quota{2, 3, 0, 5, 6, 0}));
  EXPECT_EQ(parsedLine("#5"), Quota());
}

TEST(QuotaReport, LimitsAreSixtyFourBitsWide) {
  EXPECT_EQ(parsedLine("#5 -- 1 4294967296 9000000000000 4 5 6"),
            (Quota{4294967296u, 9000000000000u, 0, 5, 6, 0}));
}

TEST(QuotaReport, UserAndGroupSectionsFillBothRecords) {
  Parsed parsed(std::string(kUserHeading) +
                "#0        --      20       0       0              2     0     0       \n"
                "#4294967294 --    1     2       3              4     5     6       \n"
                "\n\n" +
                kGroupHeading +
                "#7        --       1      20      30              4    50    60\n\n");
  EXPECT_EQ(parsed.users.entries.size(), 2u);
  EXPECT_EQ(parsed.users.entries[0], Quota());
  EXPECT_EQ(parsed.users.entries[4294967294u], (Quota{2, 3, 0, 5, 6, 0}));
  EXPECT_EQ(parsed.groups.entries.size(), 1u);
  EXPECT_EQ(parsed.groups.entries[7], (Quota{20, 30, 0, 50, 60, 0}));
}

TEST(QuotaReport, GracePeriodsOfTheKindComeFromItsHeading) {
  const Parsed parsed(std::string(kUserHeading) + "\n" + kGroupHeading);
  EXPECT_EQ(parsed.users.blockGrace, 604800u);
  EXPECT_EQ(parsed.users.inodeGrace, 86340u);
  EXPECT_EQ(parsed.groups.blockGrace, 172800u);
  EXPECT_EQ(parsed.groups.inodeGrace, 259200u);
}

TEST(QuotaReport, GraceLineBeforeAnyHeadingIsSkipped) {
  const Parsed parsed("Block grace time: 7days; Inode grace time: 7days\n");
  EXPECT_EQ(parsed.users.blockGrace, 0u);
  EXPECT_EQ(parsed.groups.blockGrace, 0u);
}

TEST(QuotaReport, GraceLineWithOnePeriodSetsTheOtherToZero) {
  const Parsed parsed("x user quotas x\nBlock grace time: 7days\n");
  EXPECT_EQ(parsed.users.blockGrace, 604800u);
  EXPECT_EQ(parsed.users.inodeGrace, 0u);
}

TEST(QuotaReport, LaterLineForAnIdReplacesTheEarlier) {
  EXPECT_EQ(parsedLine("#5 +- 1 2 3 6days 4 5 6 2days\n#5 -- 1 20 30 4 50 60"),
            (Quota{20, 30, 0, 50, 60, 0}));
}

TEST(QuotaReport, DataBeforeAnyHeadingIsSkipped) {
  const Parsed parsed("#5 -- 1 2 3 4 5 6\n-----\n#5 -- 1 2 3 4 5 6\n");
  EXPECT_TRUE(parsed.users.entries.empty());
  EXPECT_TRUE(parsed.groups.entries.empty());
}

TEST(QuotaReport, DataInAHeadingIsSkipped) {
  // The dashed line ends a heading, any other line that is not data begins one.
  const Parsed parsed("x user quotas x\n#5 -- 1 2 3 4 5 6\n---\n\n#6 -- 1 2 3 4 5 6\n");
  EXPECT_TRUE(parsed.users.entries.empty());
}

TEST(QuotaReport, EmptyReportIsEmptyRecords) {
  const Parsed parsed("");
  EXPECT_TRUE(parsed.users.entries.empty());
  EXPECT_EQ(parsed.users.blockGrace, 0u);
}

TEST(QuotaGraceTable, BothKindsAreRead) {
  Quotas users, groups;
  EXPECT_EQ(graces_parse_phys("Grace period before enforcing soft limits for users:\n"
                              "Time units may be: days, hours, minutes, or seconds\n"
                              "  Filesystem             Block grace period     Inode grace period\n"
                              "  /dev/sda1                     7days                  12hours\n"
                              "Grace period before enforcing soft limits for groups:\n"
                              "Time units may be: days, hours, minutes, or seconds\n"
                              "  Filesystem             Block grace period     Inode grace period\n"
                              "  /dev/sda1                     90minutes              5seconds\n",
                              &users, &groups),
            0);
  EXPECT_EQ(users.blockGrace, 604800u);
  EXPECT_EQ(users.inodeGrace, 43200u);
  EXPECT_EQ(groups.blockGrace, 5400u);
  EXPECT_EQ(groups.inodeGrace, 5u);
}

TEST(QuotaGraceTable, OtherLinesAreSkipped) {
  Quotas users, groups;
  EXPECT_EQ(graces_parse_phys("/dev/sda1 7days 7days\n"
                              "limits for users\n/dev/sda1 7days 7days\nFilesystem\nshort line\n",
                              &users, &groups),
            0);
  EXPECT_EQ(users.blockGrace, 0u);
  EXPECT_EQ(groups.blockGrace, 0u);
}
