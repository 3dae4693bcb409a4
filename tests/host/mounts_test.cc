#include "host/mounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(MountPoints, AreTheFifthFieldWithEscapesUndone) {
  EXPECT_THAT(host::parseMountPoints("22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                                     "23 22 0:5 /x /a\\040b\\134c rw - tmpfs none rw\n"
                                     "too short\n\n"
                                     "24 22 0:6 / /end\\04 rw - tmpfs none rw"),
              ElementsAre("/", "/a b\\c", "/end\\04"));
}

TEST(MountPoints, OfThisProcessHoldTheProcFileSystem) {
  EXPECT_THAT(host::mountPoints(), Contains("/proc"));
}

TEST(MountPoints, BelowLeavesThePlaceItselfAndItsNamesakesOut) {
  const std::vector<std::string> points{"/", "/x", "/x/a", "/xy", "/x/a/b", "/x"};
  EXPECT_THAT(host::mountsBelow(points, "/x"), ElementsAre("/x/a", "/x/a/b"));
  EXPECT_THAT(host::mountsBelow(points, "/none"), IsEmpty());
  EXPECT_EQ(host::countMountsAt(points, "/x"), 2u);
  EXPECT_EQ(host::countMountsAt(points, "/none"), 0u);
}

}  // namespace
