#include "migrate/progress.h"

#include <gtest/gtest.h>

using P2V::ProgressThrottle;
using P2V::scanProgressLine;

namespace {

constexpr std::time_t kStart = 1000000000;
constexpr std::optional<int> kNothing;

std::string bar(int percent) { return "12345678   " + std::to_string(percent) + "% |#### "; }

}  // namespace

TEST(ProgressLine, PercentStandsBetweenAWordAndABar) {
  EXPECT_EQ(scanProgressLine("123 45% |"), 45);
  EXPECT_EQ(scanProgressLine("   1,234,567   45% |#####      |"), 45);
  EXPECT_EQ(scanProgressLine("x 0% |"), 0);
  EXPECT_EQ(scanProgressLine("x 100% |"), 100);
}

TEST(ProgressLine, OtherLinesAreNone) {
  EXPECT_EQ(scanProgressLine("45%"), kNothing);
  EXPECT_EQ(scanProgressLine("45% |"), kNothing);
  EXPECT_EQ(scanProgressLine("123 45%"), kNothing);
  EXPECT_EQ(scanProgressLine("123 45% #"), kNothing);
  EXPECT_EQ(scanProgressLine("123 45 |"), kNothing);
  EXPECT_EQ(scanProgressLine("sent 45 bytes"), kNothing);
  EXPECT_EQ(scanProgressLine("etc/passwd"), kNothing);
  EXPECT_EQ(scanProgressLine(""), kNothing);
}

TEST(ProgressThrottle, SamePercentIsDroppedAndADropIsReported) {
  ProgressThrottle throttle;
  EXPECT_EQ(throttle.accept(bar(45).c_str(), kStart), 45);
  EXPECT_EQ(throttle.accept(bar(45).c_str(), kStart + 20), kNothing);
  EXPECT_EQ(throttle.accept(bar(44).c_str(), kStart + 20), 44);
}

TEST(ProgressThrottle, NothingPassesWithinTwentySeconds) {
  ProgressThrottle throttle;
  EXPECT_EQ(throttle.accept(bar(1).c_str(), kStart), 1);
  EXPECT_EQ(throttle.accept(bar(2).c_str(), kStart), kNothing);
  EXPECT_EQ(throttle.accept(bar(2).c_str(), kStart + 19), kNothing);
  EXPECT_EQ(throttle.accept(bar(2).c_str(), kStart + 20), 2);
  EXPECT_EQ(throttle.accept(bar(3).c_str(), kStart + 39), kNothing);
}

TEST(ProgressThrottle, SamePercentDoesNotStartTheTimeAnew) {
  ProgressThrottle throttle;
  EXPECT_EQ(throttle.accept(bar(1).c_str(), kStart), 1);
  EXPECT_EQ(throttle.accept(bar(1).c_str(), kStart + 20), kNothing);
  EXPECT_EQ(throttle.accept(bar(2).c_str(), kStart + 21), 2);
}

TEST(ProgressThrottle, ClockThatWentBackLetsTheLineThrough) {
  ProgressThrottle throttle;
  EXPECT_EQ(throttle.accept(bar(1).c_str(), kStart), 1);
  EXPECT_EQ(throttle.accept(bar(2).c_str(), kStart - 1), 2);
  EXPECT_EQ(throttle.accept(bar(3).c_str(), kStart), kNothing);
}

TEST(ProgressThrottle, ZeroPercentCountsButIsNotReported) {
  ProgressThrottle throttle;
  // Zero is also what the throttle begins with.
  EXPECT_EQ(throttle.accept(bar(0).c_str(), kStart), kNothing);
  EXPECT_EQ(throttle.accept(bar(5).c_str(), kStart), 5);
  EXPECT_EQ(throttle.accept(bar(0).c_str(), kStart + 20), kNothing);
  EXPECT_EQ(throttle.accept(bar(6).c_str(), kStart + 39), kNothing);
  EXPECT_EQ(throttle.accept(bar(6).c_str(), kStart + 40), 6);
}

TEST(ProgressThrottle, OtherLinesDoNotCount) {
  ProgressThrottle throttle;
  EXPECT_EQ(throttle.accept("building file list ...", kStart), kNothing);
  EXPECT_EQ(throttle.accept(bar(5).c_str(), kStart), 5);
}
