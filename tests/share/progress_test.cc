#include "share/rsync/progress.h"

#include <gtest/gtest.h>

#include <cstdio>

using qxrsync::parseProgress;
using qxrsync::Progress;
using qxrsync::ProgressBar;
using qxrsync::renderBar;

namespace {

const char* const listingLine =
    "       51792000  49%    1.12GB/s    0:00:00 (xfr#996, ir-chk=1014/2041)";
const char* const listedLine =
    "      520000000  50%    1.12GB/s    0:00:01 (xfr#996, to-chk=1014/2041)";

// As the destination's worker scans it.
int scannedPercent(const std::string& line) {
  int percent = -1;
  int end = 0;
  if (std::sscanf(line.c_str(), "%*s%d%% |%n", &percent, &end) != 1 || end == 0) return -1;
  return percent;
}

}  // namespace

TEST(Progress, StockLinesAreUnderstood) {
  EXPECT_EQ(parseProgress(listingLine), (Progress{51792000, 49, true}));
  EXPECT_EQ(parseProgress(listedLine), (Progress{520000000, 50, false}));
  EXPECT_EQ(parseProgress("          32768   0%    0.00kB/s    0:00:00  "), (Progress{32768, 0}));
  EXPECT_EQ(parseProgress("          32768 100%    9.11MB/s    0:00:00 (xfr#1, to-chk=0/1)"),
            (Progress{32768, 100}));
}

TEST(Progress, OtherLinesAreNot) {
  for (const char* line : {"", "receiving incremental file list", "file 45%", "12 files", "12 45",
                           "  45%", "12  45% of something", "-3  45%  1B/s"})
    EXPECT_EQ(parseProgress(line), std::nullopt) << line;
}

TEST(Progress, EveryBarIsScannedToItsPercentage) {
  for (int percent = 0; percent <= 100; ++percent) {
    EXPECT_EQ(scannedPercent(renderBar(1234567890123, percent)), percent);
    EXPECT_EQ(renderBar(0, percent).size(), renderBar(9, 100).size());
  }
  EXPECT_EQ(renderBar(1234, 45), "1234  45% |#########           |");
  EXPECT_EQ(renderBar(1234, 400), "1234 100% |####################|");
}

TEST(Progress, LatestLineIsShownOnce) {
  ProgressBar bar(0);
  EXPECT_EQ(bar.changedBar(), std::nullopt);
  EXPECT_EQ(bar.feed(std::string("\r") + listingLine + "\r" + listedLine + "\r"), "");
  EXPECT_EQ(bar.changedBar(), renderBar(520000000, 50));
  EXPECT_EQ(bar.changedBar(), std::nullopt);
}

TEST(Progress, OutputMayBeCutAnywhereAndOtherLinesPass) {
  const std::string output =
      "receiving file list\n\r" + std::string(listedLine) + "\r\nsome name\n";
  ProgressBar bar(0);
  std::string others;
  for (const char c : output) others += bar.feed(std::string(1, c));
  EXPECT_EQ(others, "receiving file list\nsome name\n");
  EXPECT_EQ(bar.finish(false), renderBar(520000000, 50) + "\n");
}

TEST(Progress, WhileListingTheBytesInUseAreTheWhole) {
  ProgressBar bar(1000000000);
  bar.feed(std::string(listingLine) + "\r");
  EXPECT_EQ(bar.changedBar(), renderBar(51792000, 5));
  bar.feed("       51800000  49%    1.12GB/s    0:00:00  \r");  // within a file
  EXPECT_EQ(bar.changedBar(), renderBar(51800000, 5));
  bar.feed(std::string(listedLine) + "\r");
  EXPECT_EQ(bar.changedBar(), renderBar(520000000, 50));
  bar.feed("      521000000  51%    1.12GB/s    0:00:00  \r");
  EXPECT_EQ(bar.changedBar(), renderBar(521000000, 51));
}

TEST(Progress, StocksLowerPercentageStandsWhileListing) {
  ProgressBar bar(60000000);
  bar.feed(std::string(listingLine) + "\r");
  EXPECT_EQ(bar.changedBar(), renderBar(51792000, 49));
}

TEST(Progress, GoodEndIsAHundredPercent) {
  ProgressBar bar(0);
  bar.feed(std::string(listedLine) + "\r");
  EXPECT_EQ(bar.finish(true), renderBar(520000000, 100) + "\n");
}

TEST(Progress, WithoutProgressThereIsNoBarAtTheEnd) {
  ProgressBar bar(0);
  EXPECT_EQ(bar.feed("error"), "");
  EXPECT_EQ(bar.finish(true), "error\n");
}
