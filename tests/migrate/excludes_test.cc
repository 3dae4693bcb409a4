#include "migrate/excludes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

std::vector<std::string> completed(std::vector<std::string> list) {
  P2V::completeExcludes(list);
  return list;
}

}  // namespace

TEST(Excludes, FixedPatternsAreAdded) {
  EXPECT_THAT(completed({}),
              ElementsAre("/proc/*", "/sys/*", "/var/log/lastlog", "/var/qxagent.tmp"));
}

TEST(Excludes, DuplicatesGo) {
  EXPECT_THAT(completed({"/proc/*", "/tmp/*", "/tmp/*"}),
              ElementsAre("/proc/*", "/sys/*", "/tmp/*", "/var/log/lastlog", "/var/qxagent.tmp"));
}

TEST(Excludes, OrderIsThatOfBytes) {
  EXPECT_THAT(completed({"/z", "/Z", "/var/qxagent", "/\xc3\xa9"}),
              ElementsAre("/Z", "/proc/*", "/sys/*", "/var/log/lastlog", "/var/qxagent",
                          "/var/qxagent.tmp", "/z", "/\xc3\xa9"));
}

TEST(Excludes, CompletingTwiceChangesNothing) {
  EXPECT_EQ(completed(completed({"/x"})), completed({"/x"}));
}
