// Disk limits that hold what is copied.

#include "agent/plan/disk_limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/plan/survey.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;

constexpr long long kMib = 1 << 20;

QXA::QXAEnvConfig measured(long long blocks, long long inodes) {
  QXA::QXAEnvConfig config;
  config.setQoSes(std::set<QXL::QXLQoS>{{"diskspace", blocks, true, blocks + blocks / 10},
                                        {"diskinodes", inodes, true, inodes + inodes / 10}});
  return config;
}

TEST(DiskLimits, ThatHoldWhatIsCopiedStayAsMeasured) {
  QXA::QXAEnvConfig config = measured(1000, 100);
  EXPECT_THAT(agent::raiseDiskLimits(config, {1100 * 1024, 110}, false), IsEmpty());
  EXPECT_EQ(agent::limitOf(config, "diskspace"), 1100);
}

TEST(DiskLimits, BelowWhatIsCopiedBecomeATenthMore) {
  QXA::QXAEnvConfig config = measured(130000, 1000);
  const auto raised = agent::raiseDiskLimits(config, {250 * kMib, 5000}, false);
  ASSERT_THAT(raised, SizeIs(2));
  EXPECT_EQ(raised[0].name, "diskspace");
  EXPECT_EQ(raised[0].limit, 281600);
  EXPECT_EQ(raised[0].text,
            "The container's disk limit is 275.0 MiB, 10 % more than is copied: the measured one, "
            "139.6 MiB, would be too small.");
  EXPECT_EQ(raised[1].text,
            "The container's limit of inodes is 5,500, 10 % more than is copied: the measured one, "
            "1,100, would be too small.");
  EXPECT_EQ(agent::limitOf(config, "diskspace"), 281600);
  EXPECT_EQ(agent::limitOf(config, "diskinodes"), 5500);
}

TEST(DiskLimits, OfAFileSystemLeaveMoreThanAFifthFree) {
  // Nine tenths full: enough for a limit, too little for a disk.
  QXA::QXAEnvConfig config = measured(1000, 100000);
  const auto raised = agent::raiseDiskLimits(config, {1000 * 1024, 10}, true);
  ASSERT_THAT(raised, SizeIs(1));
  EXPECT_EQ(raised[0].limit, 1300);
  // One that has that much stays.
  QXA::QXAEnvConfig roomy = measured(1200, 100000);
  EXPECT_THAT(agent::raiseDiskLimits(roomy, {1000 * 1024, 10}, true), IsEmpty());
}

TEST(DiskLimits, WithoutRecordsNothingIsRaised) {
  QXA::QXAEnvConfig config;
  EXPECT_THAT(agent::raiseDiskLimits(config, {kMib, 1}, true), IsEmpty());
  EXPECT_EQ(agent::limitOf(config, "diskspace"), -1);
}

agent::SurveyedFileSystem fileSystem(long long bytes, long long files) {
  agent::SurveyedFileSystem found{"/dev/sda1", "/", "ext4", "rw"};
  found.copied = true;
  found.bytes = bytes;
  found.files = files;
  return found;
}

TEST(DiskLimits, FiguresThatNobodyCanHaveNeitherWrapNorShrink) {
  agent::Survey survey;
  survey.fileSystems = {fileSystem(9223372036854775807LL, 5), fileSystem(100, -7)};
  const agent::CopiedFigures copied = agent::copiedFigures(survey);
  EXPECT_EQ(copied.bytes, 9223372036854775807LL);
  EXPECT_EQ(copied.files, 5);
  // Nor does the limit that is made of them.
  QXA::QXAEnvConfig config = measured(1000, 100);
  agent::raiseDiskLimits(config, copied, true);
  EXPECT_GT(agent::limitOf(config, "diskspace"), 9223372036854775807LL / 1024);
}

TEST(DiskLimits, SwapFilesOfUncountedFileSystemsAreTakenOffWithinReason) {
  agent::Survey survey;
  survey.fileSystems = {fileSystem(1000, 5)};
  survey.swapFiles = {{"/swap", -50}, {"/swap2", 400}, {"/swap3", 10000}};
  const agent::CopiedFigures copied = agent::copiedFigures(survey);
  EXPECT_EQ(copied.bytes, 0);
  EXPECT_EQ(copied.files, 2);
}

}  // namespace
