#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hwcalc/command_output.h"
#include "hwcalc/mount_table.h"
#include "hwcalc/proc_files.h"
#include "hwcalc/resolver.h"

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CountOutput, WhiteSpaceAroundTheNumberIsIgnored) {
  EXPECT_EQ(hwcalc::readCount("42\n"), 42);
  EXPECT_EQ(hwcalc::readCount(" \t 42 \r\n"), 42);
}

TEST(CountOutput, WithoutANumberIsZero) {
  EXPECT_EQ(hwcalc::readCount(""), 0);
  EXPECT_EQ(hwcalc::readCount("none\n"), 0);
}

TEST(CountOutput, BeyondTheRangeIsTheLargestNumber) {
  EXPECT_EQ(hwcalc::readCount("99999999999999999999"), 2147483647);
}

TEST(IpcsOutput, AllocatedPagesAreFound) {
  EXPECT_EQ(hwcalc::readAllocatedPages("\n------ Shared Memory Status --------\n"
                                       "segments allocated 3\npages allocated 1234\n"
                                       "pages resident  17\n"),
            1234);
}

TEST(IpcsOutput, WithoutTheLineIsZero) {
  EXPECT_EQ(hwcalc::readAllocatedPages(""), 0);
  EXPECT_EQ(hwcalc::readAllocatedPages("segments allocated 3\n"), 0);
  EXPECT_EQ(hwcalc::readAllocatedPages("pages allocated\n"), 0);
}

TEST(DfOutput, UsedColumnIsSummed) {
  EXPECT_EQ(hwcalc::sumUsed("Filesystem     1K-blocks    Used Available Use% Mounted on\n"
                            "/dev/sda1       10000000 4000000   5500000  43% /\n"
                            "/dev/sda2\t2000000\t1234\t0  1% /home\n"),
            4001234);
}

TEST(DfOutput, HeaderIsNotRead) {
  EXPECT_EQ(hwcalc::sumUsed("Filesystem 1K-blocks 2008 Available\n/dev/sda1 10 4 6\n"), 4);
}

TEST(DfOutput, FileSystemsWithoutFiguresAddNothing) {
  EXPECT_EQ(hwcalc::sumUsed("Filesystem Inodes IUsed IFree IUse% Mounted on\n"
                            "/dev/sda1  600000 1234  1     1%    /\n"
                            "/dev/sdb1       -    -  -     -     /boot\n"
                            "/dev/sdc1       0    0  0     -     /data\n"),
            1234);
}

TEST(DfOutput, HeaderAloneIsZero) {
  EXPECT_EQ(hwcalc::sumUsed("Filesystem 1K-blocks Used Available Use% Mounted on\n"), 0);
  EXPECT_EQ(hwcalc::sumUsed(""), 0);
}

TEST(DfOutput, LineThatWasBrokenAfterALongDeviceCounts) {
  EXPECT_EQ(hwcalc::sumUsed("Filesystem 1K-blocks Used Available Use% Mounted on\n"
                            "/dev/mapper/a-very-long-volume-name-0123456789\n"
                            "                      2000   300  1700  15% /data\n"),
            300);
}

TEST(DfOutput, SumBeyondTheRangeIsTheLargestNumber) {
  EXPECT_EQ(hwcalc::sumUsed("Filesystem 1K-blocks Used\n/a 1 2000000000 1\n/b 1 2000000000 1\n"),
            2147483647);
}

TEST(MountTable, FieldsAreSeparatedByBlanksAndTabs) {
  const auto table = hwcalc::parseMountTable("/dev/sda1\t/  \text3 rw,usrquota 0 1\n");
  ASSERT_EQ(table.size(), 1u);
  EXPECT_EQ(table[0].device, "/dev/sda1");
  EXPECT_EQ(table[0].mountPoint, "/");
  EXPECT_EQ(table[0].type, "ext3");
  EXPECT_EQ(table[0].options, "rw,usrquota");
}

TEST(MountTable, CommentsAndShortLinesAreSkipped) {
  EXPECT_THAT(hwcalc::parseMountTable("# /dev/sda1 / ext3 rw\n\n/dev/sda1 /\n"), IsEmpty());
}

TEST(MountTable, MissingOptionsAreEmpty) {
  const auto table = hwcalc::parseMountTable("none /proc proc");
  ASSERT_EQ(table.size(), 1u);
  EXPECT_EQ(table[0].options, "");
}

TEST(MountTable, OctalEscapesAreResolved) {
  const auto table = hwcalc::parseMountTable("/dev/sdb1 /mnt/my\\040disk\\134x\\01 ext3 rw 0 0\n");
  ASSERT_EQ(table.size(), 1u);
  EXPECT_EQ(table[0].mountPoint, "/mnt/my disk\\x\\01");
}

TEST(ResolverSettings, NameserverIsCollapsed) {
  EXPECT_THAT(hwcalc::parseResolverSettings("nameserver   10.0.0.1  \n").first,
              ElementsAre("10.0.0.1"));
}

TEST(ResolverSettings, SearchWordsAreTakenInOrder) {
  EXPECT_THAT(hwcalc::parseResolverSettings("search beta \t alpha  \n").second,
              ElementsAre("beta", "alpha"));
}

TEST(ResolverSettings, LineOfOneWordIsSkipped) {
  const auto [nameservers, domains] = hwcalc::parseResolverSettings("nameserver\nsearch\n");
  EXPECT_THAT(nameservers, IsEmpty());
  EXPECT_THAT(domains, IsEmpty());
}

TEST(ResolverSettings, OtherKeywordsAreIgnored) {
  const auto [nameservers, domains] = hwcalc::parseResolverSettings(
      "domain example.org\n# nameserver 10.0.0.1\n#nameserver 10.0.0.2\noptions rotate\n"
      " nameserver 10.0.0.3\n");
  EXPECT_THAT(nameservers, IsEmpty());
  EXPECT_THAT(domains, IsEmpty());
}

TEST(ResolverSettings, SeveralLinesAddUp) {
  const auto [nameservers, domains] = hwcalc::parseResolverSettings(
      "nameserver\t10.0.0.1\nsearch a.org\r\nnameserver fd00::1\nsearch b.org");
  EXPECT_THAT(nameservers, ElementsAre("10.0.0.1", "fd00::1"));
  EXPECT_THAT(domains, ElementsAre("a.org", "b.org"));
}

TEST(ProcStatus, FieldsAreTaken) {
  const hwcalc::ProcStatus status = hwcalc::parseStatus(
      "Name:\tmy daemon\nUmask:\t0022\nState:\tS (sleeping)\nPid:\t77\nPPid:\t12\n"
      "VmPeak:\t  99999 kB\nVmLck:\t      64 kB\nVmRSS:\t    1234 kB\n");
  EXPECT_EQ(status.name, "my daemon");
  EXPECT_EQ(status.parent, 12u);
  EXPECT_EQ(status.locked, 64u);
  EXPECT_EQ(status.resident, 1234u);
}

TEST(ProcStatus, KernelThreadHasNoMemory) {
  const hwcalc::ProcStatus status = hwcalc::parseStatus("Name:\tkthreadd\nPPid:\t0\n");
  EXPECT_EQ(status.name, "kthreadd");
  EXPECT_EQ(status.locked, 0u);
  EXPECT_EQ(status.resident, 0u);
}

TEST(ProcMaps, LineIsTakenApart) {
  std::vector<hwcalc::MapsLine> lines;
  hwcalc::parseMaps("7f00deadb000-7f00deadd000 rw-s 0001f000 fd:0a 1835134   /usr/lib/x.so\n",
                    lines);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].start, 0x7f00deadb000u);
  EXPECT_EQ(lines[0].pages, 2u);
  EXPECT_EQ(lines[0].offset, 0x1f000u);
  EXPECT_EQ(lines[0].device, 0xfdu << 20 | 0x0au);
  EXPECT_EQ(lines[0].inode, 1835134u);
}

TEST(ProcMaps, PermissionsGiveTheFlags) {
  using namespace hwcalc;
  const auto flagsOf = [](const std::string& permissions) {
    std::vector<MapsLine> lines;
    parseMaps("1000-2000 " + permissions + " 0 00:00 0\n", lines);
    return lines.empty() ? ~0u : lines[0].flags;
  };
  EXPECT_EQ(flagsOf("---p"), 0u);
  EXPECT_EQ(flagsOf("r--p"), 1u);
  EXPECT_EQ(flagsOf("-w-p"), 2u);
  EXPECT_EQ(flagsOf("--xp"), 4u);
  EXPECT_EQ(flagsOf("---s"), 8u);
  EXPECT_EQ(flagsOf("rwxs"), 15u);
}

TEST(ProcMaps, LinesOfAnotherFormAreSkipped) {
  std::vector<hwcalc::MapsLine> lines;
  hwcalc::parseMaps("\nnonsense\n2000-1000 rw-p 0 00:00 0\n1000-2000 rw-p 0 00:00\n1000-2000 rw",
                    lines);
  EXPECT_THAT(lines, IsEmpty());
}

TEST(ProcDirectory, OnlyNumbersAreProcesses) {
  std::uint32_t id = 0;
  EXPECT_TRUE(hwcalc::isProcessId("4194303", id));
  EXPECT_EQ(id, 4194303u);
  EXPECT_FALSE(hwcalc::isProcessId("self", id));
  EXPECT_FALSE(hwcalc::isProcessId("1x", id));
  EXPECT_FALSE(hwcalc::isProcessId("", id));
  EXPECT_FALSE(hwcalc::isProcessId("99999999999", id));
}
