#include "migrate/disk_space.h"

#include <gtest/gtest.h>

#include "expand/runscript.h"
#include "support/temp_tree.h"

using namespace P2V;
using namespace test_support;

TEST(DuTotal, IsTheFirstNumberInBytes) {
  EXPECT_EQ(parseDuTotal("1234\t/\n").bytes, 1234 * 1024);
  EXPECT_EQ(parseDuTotal("1234\t/\n").position, 0u);
  EXPECT_EQ(parseDuTotal("  7\t/\n").bytes, 7 * 1024);
  EXPECT_EQ(parseDuTotal("  7\t/\n").position, 2u);
  EXPECT_EQ(parseDuTotal("9000000000\t/").bytes, 9216000000000);
}

TEST(DuTotal, WithoutANumberIsZero) {
  EXPECT_EQ(parseDuTotal("nothing\n").bytes, 0);
  EXPECT_EQ(parseDuTotal("nothing\n").position, std::string::npos);
}

TEST(DuCommand, PatternsStandUnquotedBehindTwoBlanks) {
  EXPECT_EQ(duCommand({"/proc/*", "/sys/*"}), "du -s -c  /proc/* /sys/*");
}

TEST(DuGrandTotal, IsOnTheLastLine) {
  EXPECT_EQ(parseDuGrandTotal("1\t/proc\n20\t/sys\n21\ttotal\n", 0), 21 * 1024);
  EXPECT_EQ(parseDuGrandTotal("21\ttotal", 0), 21 * 1024);
}

TEST(DuGrandTotal, IsSearchedFromTheFirstOutputsPosition) {
  EXPECT_EQ(parseDuGrandTotal("99\n5 7 total\n", 2), 7 * 1024);
  EXPECT_EQ(parseDuGrandTotal("5 total\n", 2), 0);
  EXPECT_EQ(parseDuGrandTotal("5 total\n", std::string::npos), 0);
  EXPECT_EQ(parseDuGrandTotal("\n", 0), 0);
  EXPECT_EQ(parseDuGrandTotal("", 0), 0);
}

TEST(DuGrandTotal, CountsAPatternInsideAnotherOnce) {
  const TempTree tree({fileAt("a/b/file", std::string(50000, 'x'))});
  const auto measured = [&](const std::vector<std::string>& patterns) {
    std::string out, err;
    EXPECT_EQ(Expand::runscript(duCommand(patterns), out, err), 0) << err;
    return parseDuGrandTotal(out, 0);
  };
  EXPECT_GE(measured({tree.path("a")}), 50000);
  EXPECT_EQ(measured({tree.path("a"), tree.path("a/b")}), measured({tree.path("a")}));
}

TEST(Df, DataLineIsTheOneAfterTheTitles) {
  EXPECT_EQ(dfDataLine("Filesystem 1K-blocks\n/dev/sda1 1000\nmore\n"), "/dev/sda1 1000");
  EXPECT_EQ(dfDataLine("Filesystem"), "");
  EXPECT_EQ(dfDataLine(""), "");
}

TEST(Df, UsedIsIntentionallyPartOfWhatTheFileSystemGives) {
  EXPECT_EQ(parseDfLine("fs 1000 200 800 20% /x"), 1024000);
  EXPECT_EQ(parseDfLine("/dev/sda1   1000\t 200   700  20% /x"), 921600);
  EXPECT_EQ(parseDfLine("fs 9000000000 4000000000 5000000000 45% /"), 9216000000000);
}

TEST(Df, DigitsInTheFileSystemsNameDoNotMislead) {
  EXPECT_EQ(parseDfLine("10.0.0.1:/export/77 1000 1 2 1% /x"), 3072);
}

TEST(Df, MissingFiguresCountAsZero) {
  EXPECT_EQ(parseDfLine(""), 0);
  EXPECT_EQ(parseDfLine("fs"), 0);
  EXPECT_EQ(parseDfLine("fs 1000"), 0);
  EXPECT_EQ(parseDfLine("fs 1000 5"), 5120);
}
