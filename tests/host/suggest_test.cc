#include "host/suggest.h"

#include <gtest/gtest.h>

namespace {

TEST(Nearest, IsTheWordThatWasMeant) {
  const std::vector<std::string> words{"start", "stop", "status", "list", "umount", "mount"};
  EXPECT_EQ(host::nearest("strat", words), "start");
  EXPECT_EQ(host::nearest("stpo", words), "stop");
  EXPECT_EQ(host::nearest("unmount", words), "umount");
  EXPECT_EQ(host::nearest("lst", words), "list");
  EXPECT_EQ(host::nearest("statsu", words), "status");
  EXPECT_EQ(host::nearest("migrate", words), "");
  EXPECT_EQ(host::nearest("", words), "");
}

TEST(Misspelt, IsTheFirstWordThatThereIsNot) {
  const host::CommandWords known{
      {{"", {"--help", "--skiplock"}}, {"start", {"--help", "--onboot"}}, {"stop", {"--fast"}}},
      true,
      true};
  EXPECT_EQ(host::misspelt({"strat", "101"}, known),
            "there is no command 'strat', did you mean 'start'?");
  EXPECT_EQ(host::misspelt({"migrate"}, known), "there is no command 'migrate'");
  EXPECT_EQ(host::misspelt({"start", "--onbot"}, known),
            "'start' has no option '--onbot', did you mean '--onboot'?");
  EXPECT_EQ(host::misspelt({"stop", "--fsat=1"}, known),
            "'stop' has no option '--fsat', did you mean '--fast'?");
  EXPECT_EQ(host::misspelt({"--skip-lock", "stop"}, known),
            "'stop' has no option '--skip-lock', did you mean '--skiplock'?");
  EXPECT_EQ(host::misspelt({"--hlp"}, known), "there is no option '--hlp', did you mean '--help'?");
  EXPECT_EQ(host::misspelt({"stop", "--frobnicate"}, known), "'stop' has no option '--frobnicate'");
  EXPECT_EQ(host::misspelt({"start", "--onboot", "--", "--onbot"}, known), "");
  EXPECT_EQ(host::misspelt({}, known), "");
}

TEST(Misspelt, AWordThatNeedNotBeACommandIsOnlyToldOfWhenItIsNearToOne) {
  const host::CommandWords known{
      {{"", {"--ctid", "--force"}}, {"plan", {"--ctid", "--json"}}}, false, false};
  EXPECT_EQ(host::misspelt({"paln", "root@web"}, known),
            "there is no command 'paln', did you mean 'plan'?");
  EXPECT_EQ(host::misspelt({"root@web"}, known), "");
  EXPECT_EQ(host::misspelt({"root@web", "--cdit", "101"}, known),
            "there is no option '--cdit', did you mean '--ctid'?");
  // A server may be called like a command that is near, beside one that is named.
  EXPECT_EQ(host::misspelt({"plan", "plans"}, known), "");
  EXPECT_EQ(host::misspelt({"--force", "plan"}, known), "'plan' has no option '--force'");
}

}  // namespace
