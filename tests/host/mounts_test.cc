#include "host/mounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

TEST(MountInfo, HasItsFieldsWithEscapesUndone) {
  const std::vector<host::MountInfo> mounts = host::parseMountInfo(
      "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw,quota\n"
      "23 22 0:5 /x\\040y /a\\040b\\134c rw - tmpfs none rw\n"
      "too short\n\n"
      "24 22 0:6 / /end\\04 rw - tmpfs none rw");
  EXPECT_THAT(mounts, ElementsAre(Field(&host::MountInfo::point, "/"),
                                  Field(&host::MountInfo::point, "/a b\\c"),
                                  Field(&host::MountInfo::point, "/end\\04")));
  EXPECT_EQ(mounts[0].device, "8:1");
  EXPECT_EQ(mounts[0].type, "ext4");
  EXPECT_EQ(mounts[0].source, "/dev/sda1");
  EXPECT_TRUE(mounts[0].hasOption("quota"));
  EXPECT_FALSE(mounts[0].hasOption("quo"));
  EXPECT_EQ(mounts[1].root, "/x y");
}

TEST(MountTable, HasLinesOfThreeFieldsAndMore) {
  const std::vector<host::TableLine> table = host::parseMountTable(
      "# a comment\n"
      "/dev/a\\040b\t/srv/big\\040disk  btrfs rw,nofail 0 2\n"
      "short line\n"
      "tmpfs /run tmpfs");
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(table[0].device, "/dev/a b");
  EXPECT_EQ(table[0].point, "/srv/big disk");
  EXPECT_TRUE(table[0].hasOption("nofail"));
  EXPECT_EQ(table[1].type, "tmpfs");
  EXPECT_EQ(table[1].options, "");
  EXPECT_THAT(host::parseMountTable(""), IsEmpty());
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

TEST(MountSource, IsTheLastOneOnThePlace) {
  const std::vector<host::MountInfo> mounts = host::parseMountInfo(
      "36 35 8:1 / /x rw shared:1 - ext4 /dev/sda1 rw\n"
      "37 36 7:0 / /x/fs rw - ext4 /dev/loop0 rw\n"
      "38 37 7:1 / /x/fs rw shared:7 master:2 - ext4 /dev/loop\\0401 rw\n"
      "39 38 broken\n");
  EXPECT_EQ(host::mountSource(mounts, "/x/fs"), "/dev/loop 1");
  EXPECT_EQ(host::mountSource(mounts, "/x"), "/dev/sda1");
  EXPECT_EQ(host::mountSource(mounts, "/y"), "");
}

TEST(MissingMount, IsTheDeepestOnTheWayThatIsNotMounted) {
  const char* fstab =
      "# /dev/x /commented ext4 defaults 0 2\n"
      "UUID=1 / ext4 defaults 0 1\n"
      "/dev/vdb /srv ext4 defaults 0 2\n"
      "/dev/vdc\t/srv/big\\040disk\tbtrfs\tnofail\n"
      "/dev/vdd none swap sw 0 0\n"
      "short\n";
  EXPECT_EQ(host::missingMount(fstab, {"/"}, "/srv/qx/101"), "/srv");
  EXPECT_EQ(host::missingMount(fstab, {"/"}, "/srv"), "/srv");
  EXPECT_EQ(host::missingMount(fstab, {"/", "/srv"}, "/srv/qx/101"), "");
  EXPECT_EQ(host::missingMount(fstab, {"/", "/srv"}, "/srv/big disk/101"), "/srv/big disk");
  EXPECT_EQ(host::missingMount(fstab, {"/"}, "/srvx/101"), "");
  EXPECT_EQ(host::missingMount(fstab, {"/"}, "/commented/101"), "");
  EXPECT_EQ(host::missingMount("", {"/"}, "/srv/101"), "");
}

}  // namespace
