#include "node/state.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "node/file.h"
#include "node/text.h"
#include "support/scratch_host.h"

namespace {

TEST(InitRecord, IsAPidAndAStartTime) {
  const auto record = node::parseProcessRecord("123 4567\n");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pid, 123);
  EXPECT_EQ(record->startTime, 4567u);
  for (const char* text : {"", "123", "0 1", "-1 1", "123 x", "1 2 3", "99999999999 1"}) {
    EXPECT_FALSE(node::parseProcessRecord(text)) << text;
  }
}

TEST(StartTime, IsFoundBehindAnyCommandName) {
  EXPECT_EQ(node::parseStartTime("7 (a) b (c)) S 1 7 7 0 -1 4 5 6 7 8 9 10 11 12 20 0 1 0 98765 1"),
            98765u);
  EXPECT_FALSE(node::parseStartTime("7 (sh) S 1 2 3"));
  EXPECT_FALSE(node::parseStartTime(""));
  EXPECT_EQ(node::parseParent("7 (a) b (c)) S 42 7 7 0"), 42);
  EXPECT_FALSE(node::parseParent("7 (sh) S"));
  EXPECT_FALSE(node::parseParent("7 (sh) S -1"));
}

TEST(RunningInit, IsBelievedOnlyWhileThatVeryProcessLives) {
  test_support::ScratchHost host;
  host.dir("/run/qx").run([] {
    EXPECT_FALSE(node::runningInit(101));
    const auto start =
        node::parseStartTime(node::readFile(node::textf("/proc/%d/stat", getpid())).value());
    ASSERT_TRUE(start);
    node::replaceFile("/run/qx/101.init", node::textf("%d %llu\n", getpid(), *start), 0644);
    EXPECT_EQ(node::runningInit(101), getpid());
    node::replaceFile("/run/qx/101.init", node::textf("%d %llu\n", getpid(), *start + 1), 0644);
    EXPECT_FALSE(node::runningInit(101));
    node::replaceFile("/run/qx/101.init", "malformed\n", 0644);
    EXPECT_FALSE(node::runningInit(101));
  });
}

}  // namespace
