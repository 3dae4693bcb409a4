#include "hwcalc/excludes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "hwcalc/hw_calc.h"
#include "support/scratch_host.h"

using hwcalc::MountFlags;
using hwcalc::MountPoints;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

const std::set<std::string> VIRTUAL = {"proc", "sysfs", "tmpfs", "devpts", "nfs", "autofs"};

std::map<std::string, MountFlags> pointsOf(const std::string& table) {
  MountPoints points(VIRTUAL);
  points.add(hwcalc::parseMountTable(table));
  return points.points();
}

// Each exclude as "path" or, where it is excluded by decision, "path!".
std::vector<std::string> textsOf(const std::list<QXA::QXAExcludePath>& excludes) {
  std::vector<std::string> texts;
  for (const auto& exclude : excludes)
    texts.push_back(exclude.path + (exclude.excluded ? "!" : ""));
  return texts;
}

std::vector<std::string> excludesOf(const std::string& table) {
  MountPoints points(VIRTUAL);
  points.add(hwcalc::parseMountTable(table));
  return textsOf(points.excludes());
}

constexpr MountFlags E{true, false};
constexpr MountFlags EC{true, true};
constexpr MountFlags C{false, true};

}  // namespace

TEST(VirtualTypes, AreTheOnesWithoutADevice) {
  EXPECT_THAT(hwcalc::parseVirtualTypes("nodev\tsysfs\nnodev\tproc\n\text3\n\tiso9660\n"),
              ElementsAre("proc", "sysfs"));
  EXPECT_THAT(hwcalc::parseVirtualTypes(""), IsEmpty());
}

TEST(MountPoints, RootAndDeviceTypesAreNotRecorded) {
  EXPECT_THAT(pointsOf("rootfs /r rootfs rw\nnone /dev devfs rw\n"), IsEmpty());
}

TEST(MountPoints, RemoteAndRemovableTypesAreExcludedContentsOnly) {
  for (const std::string type : {"smbfs", "nfs", "usbfs", "iso9660"}) {
    EXPECT_THAT(pointsOf("x /mnt " + type + " rw\n"), ElementsAre(Pair("/mnt", EC))) << type;
  }
}

TEST(MountPoints, AutomaticTypesAreExcluded) {
  for (const std::string type : {"auto", "autofs", "subfs"}) {
    EXPECT_THAT(pointsOf("x /mnt " + type + " rw\n"), ElementsAre(Pair("/mnt", E))) << type;
  }
}

TEST(MountPoints, FloppiesAndLoopDevicesAreExcludedContentsOnly) {
  for (const std::string device : {"/dev/fd0", "/dev/loop3"}) {
    EXPECT_THAT(pointsOf(device + " /mnt ext3 rw\n"), ElementsAre(Pair("/mnt", EC))) << device;
  }
}

TEST(MountPoints, LoopBindAndRemovableOptionsAreExcludedContentsOnly) {
  for (const std::string options :
       {"rw,loop", "ro,bind", "rbind", "context=system_u:object_r:removable_t"}) {
    EXPECT_THAT(pointsOf("/x /mnt ext3 " + options + "\n"), ElementsAre(Pair("/mnt", EC)))
        << options;
  }
}

TEST(MountPoints, VirtualTypesAreTakenContentsOnly) {
  EXPECT_THAT(pointsOf("none /proc proc rw\n"), ElementsAre(Pair("/proc", C)));
}

TEST(MountPoints, TheTypeDecidesBeforeTheDeviceAndBothBeforeTheKernelsList) {
  EXPECT_THAT(pointsOf("/dev/fd0 /media/floppy auto rw,loop\n"),
              ElementsAre(Pair("/media/floppy", E)));
  EXPECT_THAT(pointsOf("/dev/loop0 /r rootfs rw,loop\n/dev/fd0 /d devfs rw,bind\n"), IsEmpty());
  EXPECT_THAT(pointsOf("/var/tmp /tmp tmpfs rw,bind\n"), ElementsAre(Pair("/tmp", EC)));
  EXPECT_THAT(pointsOf("/proc/fd /x proc rw\n"), ElementsAre(Pair("/x", EC)));
}

TEST(MountPoints, OtherFileSystemsAreCopied) {
  EXPECT_THAT(pointsOf("/dev/sda1 / ext3 rw\n/dev/sda2 /home xfs rw\n"), IsEmpty());
}

TEST(MountPoints, KnownEntryGetsTheNewFlags) {
  EXPECT_THAT(pointsOf("/dev/cdrom /mnt auto rw\n/dev/cdrom /mnt/ iso9660 ro\n"),
              ElementsAre(Pair("/mnt", EC)));
  EXPECT_THAT(pointsOf("/dev/x /mnt auto rw\n/dev/x /mnt ext3 rw\n"), ElementsAre(Pair("/mnt", E)));
}

TEST(MountPoints, SwapAndRootAreNotRecorded) {
  EXPECT_THAT(pointsOf("/dev/loop1 none swap sw\nx swap tmpfs rw\nx / nfs rw\nx // tmpfs rw\n"),
              IsEmpty());
}

TEST(MountPoints, ReiserfsIsNoted) {
  MountPoints points(VIRTUAL);
  points.add(hwcalc::parseMountTable("/dev/sda1 / ext3 rw\n"));
  EXPECT_FALSE(points.reiserfsSeen());
  points.add(hwcalc::parseMountTable("/dev/sda1 / reiserfs rw\n"));
  EXPECT_TRUE(points.reiserfsSeen());
  EXPECT_THAT(points.points(), IsEmpty());
}

TEST(Excludes, ComeInTheOrderOfThePathsWithTheirFlags) {
  EXPECT_THAT(excludesOf("none /sys sysfs rw\nnone /proc proc rw\nx /misc/// autofs rw\n"
                         "s:/x /data nfs rw\n"),
              ElementsAre("/data/*!", "/misc!", "/proc/*", "/sys/*"));
}

TEST(Excludes, MountPointInsideAnExcludedOneIsDropped) {
  EXPECT_THAT(excludesOf("x /misc autofs rw\ns:/x /misc/a/b nfs rw\n"), ElementsAre("/misc!"));
}

TEST(Excludes, MountPointInsideAContentsOnlyOneIsDropped) {
  EXPECT_THAT(excludesOf("x /dev tmpfs rw\nx /dev/pts devpts rw\nx /dev/shm tmpfs rw\n"),
              ElementsAre("/dev/*"));
}

TEST(Excludes, MountPointInsideACopiedOneStays) {
  EXPECT_THAT(excludesOf("/dev/sda2 /home ext3 rw\ns:/x /home/x nfs rw\n"),
              ElementsAre("/home/x/*!"));
}

TEST(Excludes, NeighbourWithTheSameBeginningIsNotInside) {
  EXPECT_THAT(excludesOf("x /dev tmpfs rw\nx /dev2 tmpfs rw\n"), ElementsAre("/dev/*", "/dev2/*"));
}

namespace {

struct Result {
  std::vector<std::string> excludes;
  std::list<QXA::QXACalculateHWNodeWarning> warnings;
  unsigned diskinodes;
};

Result calculateExcludes() {
  QXHWCalc calculator;
  QXHWCalc::PhysParams params;
  params.diskinodes = 77;
  Result result;
  result.excludes = textsOf(calculator.calcExcludes(&params, result.warnings));
  result.diskinodes = params.diskinodes;
  return result;
}

}  // namespace

TEST(CalcExcludes, ReadsTypesAndBothTables) {
  test_support::ScratchHost host;
  host.file("/proc/filesystems", "nodev\tproc\nnodev\tmyfs\n\text3\n");
  host.file("/etc/fstab", "# comment\n/dev/cdrom /media/cdrom auto ro 0 0\nnone /proc proc rw\n");
  host.file("/etc/mtab", "x /my myfs rw 0 0\n/dev/cdrom /media/cdrom iso9660 ro 0 0\n");
  host.run([] {
    const Result result = calculateExcludes();
    EXPECT_THAT(result.excludes, ElementsAre("/media/cdrom/*!", "/my/*", "/proc/*"));
    EXPECT_THAT(result.warnings, IsEmpty());
    EXPECT_EQ(result.diskinodes, 77u);
  });
}

TEST(CalcExcludes, MissingTablesArePassedOver) {
  test_support::ScratchHost().run([] { EXPECT_THAT(calculateExcludes().excludes, IsEmpty()); });
}

TEST(CalcExcludes, ReiserfsWarnsAndSetsTheInodes) {
  test_support::ScratchHost host;
  host.file("/etc/mtab", "/dev/sda1 / reiserfs rw 0 0\n/dev/sda2 /home reiserfs rw 0 0\n");
  host.run([] {
    const Result result = calculateExcludes();
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings.front().code, 4);
    EXPECT_EQ(result.warnings.front().message,
              "Some of partitions contain reiserfs, which makes impossible to calculate the "
              "DISKINODES parameter. It will be set to an enough high value.");
    EXPECT_EQ(result.diskinodes, 1000000u);
  });
}

TEST(CalcExcludes, LastlogAboveOneGibibyteIsExcludedLast) {
  test_support::ScratchHost host;
  host.file("/etc/mtab", "x /www nfs rw 0 0\n");
  host.file("/var/log/lastlog", "");
  host.run([] {
    ASSERT_EQ(truncate("/var/log/lastlog", 1073741824), 0);
    EXPECT_THAT(calculateExcludes().excludes, ElementsAre("/www/*!"));
    ASSERT_EQ(truncate("/var/log/lastlog", 1073741825), 0);
    EXPECT_THAT(calculateExcludes().excludes, ElementsAre("/www/*!", "/var/log/lastlog!"));
  });
}
