#include "agent/programs/progress_line.h"

#include <gtest/gtest.h>

using agent::CopyAmount;
using agent::Progress;
using agent::progressLine;

namespace {

constexpr long long kMiB = 1 << 20;

Progress stage(const char* name, const char* text) {
  Progress progress;
  progress.stage = name;
  progress.text = text;
  return progress;
}

Progress copying(long long bytes, double perSecond, long long toCopy) {
  Progress progress = stage("rSync", "copy the files, services running");
  progress.copied = CopyAmount{bytes, perSecond};
  progress.toCopy = toCopy;
  return progress;
}

TEST(ProgressLine, TellsWhatTheStageDoes) {
  EXPECT_EQ(progressLine(stage("lockVPS", "lock the container id"), 79),
            "lockVPS            lock the container id ...");
}

TEST(ProgressLine, TellsWhatTheStageSaysOfItself) {
  Progress progress = stage("rSync", "copy the files, services running");
  progress.percent = "copy: 12%";
  EXPECT_EQ(progressLine(progress, 79), "rSync              copy: 12%");
}

TEST(ProgressLine, TellsHowFarACopyIsHowFastAndHowLongItWillTake) {
  EXPECT_EQ(progressLine(copying(400 * kMiB, 10.0 * kMiB, 1025 * kMiB), 79),
            "rSync              400.0 MiB of 1.0 GiB, 10.0 MiB/s, 1:03 left");
  EXPECT_EQ(progressLine(copying(0, 1.0 * kMiB, 7384LL * kMiB), 79),
            "rSync              0 bytes of 7.2 GiB, 1.0 MiB/s, 2:03:04 left");
}

TEST(ProgressLine, NobodyKnowsHowLongACopyThatStandsStillWillTake) {
  EXPECT_EQ(progressLine(copying(kMiB, 0, 2 * kMiB), 79),
            "rSync              1.0 MiB of 2.0 MiB, 0 bytes/s");
}

TEST(ProgressLine, WhatWasCountedMayBeLessThanWhatIsCopied) {
  EXPECT_EQ(progressLine(copying(3 * kMiB, 1.0 * kMiB, 2 * kMiB), 79),
            "rSync              3.0 MiB, 1.0 MiB/s");
  EXPECT_EQ(progressLine(copying(3 * kMiB, 1.0 * kMiB, 0), 79),
            "rSync              3.0 MiB, 1.0 MiB/s");
}

TEST(ProgressLine, TheOutageIsAtTheEnd) {
  Progress progress = stage("restoreQuota", "set the container's disk quotas");
  progress.outage = 72;
  EXPECT_EQ(progressLine(progress, 79),
            "restoreQuota       set the container's disk quotas ...  services down 1:12");
}

TEST(ProgressLine, IsNeverWiderThanTheTerminal) {
  Progress progress = stage("restoreQuota", "set the container's disk quotas");
  progress.outage = 72;
  EXPECT_EQ(progressLine(progress, 40), "restoreQuota       s  services down 1:12");
  for (size_t columns = 0; columns < 90; ++columns) {
    EXPECT_LE(progressLine(progress, columns).size(), columns);
  }
}

}  // namespace
