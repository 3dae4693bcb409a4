#include "node/suggest.h"

#include <gtest/gtest.h>

namespace {

TEST(Nearest, IsTheWordThatWasMeant) {
  const std::vector<std::string> words{"start", "stop", "status", "list", "umount", "mount"};
  EXPECT_EQ(node::nearest("strat", words), "start");
  EXPECT_EQ(node::nearest("stpo", words), "stop");
  EXPECT_EQ(node::nearest("unmount", words), "umount");
  EXPECT_EQ(node::nearest("lst", words), "list");
  EXPECT_EQ(node::nearest("statsu", words), "status");
  EXPECT_EQ(node::nearest("migrate", words), "");
  EXPECT_EQ(node::nearest("", words), "");
}

}  // namespace
