#include "share/rsync/file_systems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_tree.h"

using test_support::TempTree;

TEST(FileSystems, LocalOnesAreTakenOnceEach) {
  const std::string mountinfo =
      "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
      "23 22 0:21 / /proc rw - proc proc rw\n"
      "24 22 8:2 / /srv/my\\040data rw master:1 shared:2 - xfs /dev/sda2 rw\n"
      "25 22 8:2 /sub /mnt/bound rw - xfs /dev/sda2 rw\n"
      "26 22 0:40 / /net rw - nfs4 server:/export rw\n"
      "27 22 0:41 / /run rw - tmpfs tmpfs rw\n"
      "broken line\n";
  EXPECT_THAT(qxrsync::localMountPoints(mountinfo), testing::ElementsAre("/", "/srv/my data"));
}

TEST(FileSystems, RootCountsWhateverItIsOn) {
  EXPECT_THAT(qxrsync::localMountPoints("22 1 0:30 / / rw - overlay overlay rw\n"),
              testing::ElementsAre("/"));
}

TEST(FileSystems, BytesInUseAreKnownForTheWholeSystemOnly) {
  EXPECT_EQ(qxrsync::usedBytesBelow("/tmp"), 0U);
  EXPECT_GT(qxrsync::usedBytesBelow("/"), 0U);
}

TEST(FileSystems, ProbingLeavesNothingBehindAndAgreesWithReading) {
  const TempTree tree;
  const qxrsync::Offer written = qxrsync::probeByWriting(tree.root());
  const qxrsync::Offer read = qxrsync::probeByReading(tree.root());
  EXPECT_TRUE(std::filesystem::is_empty(tree.root()));
  EXPECT_TRUE(!written.acls || read.acls);
  EXPECT_TRUE(!written.xattrs || read.xattrs);
}

TEST(FileSystems, NanosecondsAreKeptWhereTheKernelSaysSo) {
  const TempTree tree;  // on a file system of this century
  EXPECT_TRUE(qxrsync::keepsNanoseconds(tree.root()));
  EXPECT_TRUE(std::filesystem::is_empty(tree.root()));
  EXPECT_FALSE(qxrsync::keepsNanoseconds("/proc"));
}

TEST(FileSystems, DirectoryToBeMadeIsProbedThroughItsParent) {
  const TempTree tree;
  EXPECT_EQ(qxrsync::probeByWriting(tree.path("new/")), qxrsync::probeByWriting(tree.root()));
  EXPECT_TRUE(std::filesystem::is_empty(tree.root()));
}

TEST(FileSystems, FileSystemsWithoutAttributesHoldNone) {
  EXPECT_EQ(qxrsync::probeByWriting("/proc"), qxrsync::Offer{});
  EXPECT_EQ(qxrsync::probeByWriting("/no/such/directory"), qxrsync::Offer{});
  EXPECT_FALSE(qxrsync::probeByReading("/proc/self").acls);
  EXPECT_EQ(qxrsync::probeByReading("/no/such/directory"), qxrsync::Offer{});
}
