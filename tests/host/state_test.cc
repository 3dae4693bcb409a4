#include "host/state.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/file.h"
#include "host/text.h"
#include "support/scratch_host.h"

namespace {

TEST(InitRecord, IsAPidAndAStartTime) {
  const auto record = host::parseProcessRecord("123 4567\n");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pid, 123);
  EXPECT_EQ(record->startTime, 4567u);
  for (const char* text : {"", "123", "0 1", "-1 1", "123 x", "1 2 3", "99999999999 1"}) {
    EXPECT_FALSE(host::parseProcessRecord(text)) << text;
  }
}

TEST(StartTime, IsFoundBehindAnyCommandName) {
  EXPECT_EQ(host::parseStartTime("7 (a) b (c)) S 1 7 7 0 -1 4 5 6 7 8 9 10 11 12 20 0 1 0 98765 1"),
            98765u);
  EXPECT_FALSE(host::parseStartTime("7 (sh) S 1 2 3"));
  EXPECT_FALSE(host::parseStartTime(""));
  EXPECT_EQ(host::parseParent("7 (a) b (c)) S 42 7 7 0"), 42);
  EXPECT_FALSE(host::parseParent("7 (sh) S"));
  EXPECT_FALSE(host::parseParent("7 (sh) S -1"));
}

TEST(RunningInit, IsBelievedOnlyWhileThatVeryProcessLives) {
  test_support::ScratchHost host;
  host.dir("/run/qx").run([] {
    EXPECT_FALSE(host::runningInit(101));
    const auto start =
        host::parseStartTime(host::readFile(host::textf("/proc/%d/stat", getpid())).value());
    ASSERT_TRUE(start);
    host::replaceFile("/run/qx/101.init", host::textf("%d %llu\n", getpid(), *start), 0644);
    EXPECT_EQ(host::runningInit(101), getpid());
    host::replaceFile("/run/qx/101.init", host::textf("%d %llu\n", getpid(), *start + 1), 0644);
    EXPECT_FALSE(host::runningInit(101));
    host::replaceFile("/run/qx/101.init", "malformed\n", 0644);
    EXPECT_FALSE(host::runningInit(101));
  });
}

}  // namespace
