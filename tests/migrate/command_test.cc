#include "migrate/command.h"

#include "workers.h"

using namespace test_support;

namespace {

constexpr int exited(int code) { return code << 8; }

}  // namespace

TEST(WaitStatus, OnlyExitWithZeroIsWell) {
  EXPECT_TRUE(P2V::endedWell(exited(0)));
  EXPECT_FALSE(P2V::endedWell(exited(1)));
  EXPECT_FALSE(P2V::endedWell(exited(23)));
  EXPECT_FALSE(P2V::endedWell(9));
  EXPECT_FALSE(P2V::endedWell(11 | 0x80));
}

TEST(WaitStatus, PartialTransferIsIntentionallyWellForRsync) {
  EXPECT_TRUE(P2V::rsyncEndedWell(exited(0)));
  EXPECT_TRUE(P2V::rsyncEndedWell(exited(23)));
  EXPECT_FALSE(P2V::rsyncEndedWell(exited(24)));
  EXPECT_FALSE(P2V::rsyncEndedWell(exited(12)));
  EXPECT_FALSE(P2V::rsyncEndedWell(23));
}

TEST(Argv, IsNullTerminated) {
  const std::vector<std::string> words = {"a", "", "b c"};
  const P2V::Argv argv(words);
  EXPECT_STREQ(argv.get()[0], "a");
  EXPECT_STREQ(argv.get()[1], "");
  EXPECT_STREQ(argv.get()[2], "b c");
  EXPECT_EQ(argv.get()[3], nullptr);
}

TEST(Command, GivesTheWaitStatus) {
  ScratchHost host;
  host.tool("/bad", {.status = 3}).tool("/killed", {.script = "kill -KILL $$"});
  host.run([] {
    EXPECT_EQ(P2V::runCommand({"/bad"}), exited(3));
    EXPECT_EQ(P2V::runCommand({"/killed"}), 9);
    EXPECT_EQ(P2V::runCommand({"/missing"}), exited(127));
    EXPECT_EQ(P2V::runCommand({"true"}), 0);
  });
}
