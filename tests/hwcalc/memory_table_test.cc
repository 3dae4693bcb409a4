#include "hwcalc/memory_table.h"

#include <gtest/gtest.h>

using hwcalc::MemoryTable;

namespace {

struct TestProcess {
  std::uint32_t id;
  std::uint32_t parent;
  std::string name;
  std::string maps;
  std::uint32_t locked = 0;
};

MemoryTable tableOf(const std::vector<TestProcess>& processes) {
  MemoryTable table;
  std::vector<hwcalc::MapsLine> lines;
  for (const TestProcess& process : processes) {
    hwcalc::parseMaps(process.maps, lines);
    table.add(process.id, {process.name, process.parent, 0, process.locked}, lines);
  }
  table.link();
  return table;
}

std::uint32_t pagesOf(const std::vector<TestProcess>& processes) {
  return tableOf(processes).privatePages();
}

// 16 pages each.
const std::string TEXT = "00400000-00410000 r-xp 00000000 08:01 100 /bin/daemon\n";
const std::string DATA = "00600000-00610000 rw-p 00010000 08:01 100 /bin/daemon\n";
const std::string HEAP = "00800000-00810000 rw-p 00000000 00:00 0 [heap]\n";
const std::string SHARED = "7f000000-7f010000 rw-s 00000000 00:01 200 /dev/zero (deleted)\n";
const std::string RESERVED = "7e000000-7e010000 ---p 00000000 00:00 0\n";

}  // namespace

TEST(PrivateMemory, NoProcessesHaveNone) { EXPECT_EQ(pagesOf({}), 0u); }

TEST(PrivateMemory, ReadOnlyMappingCountsOnceForAllProcesses) {
  EXPECT_EQ(pagesOf({{10, 1, "a", TEXT}, {20, 1, "b", TEXT}, {30, 20, "b", TEXT}}), 16u);
}

TEST(PrivateMemory, SharedMappingOfAKnownObjectCountsOnceForAllProcesses) {
  EXPECT_EQ(pagesOf({{10, 1, "a", SHARED}, {20, 1, "b", SHARED}, {30, 20, "b", SHARED}}), 16u);
}

TEST(PrivateMemory, SharedMappingOfNoObjectCountsForEachProcess) {
  const std::string nameless = "7f000000-7f010000 rw-s 00000000 00:00 0\n";
  EXPECT_EQ(pagesOf({{10, 1, "a", nameless}, {20, 1, "b", nameless}}), 32u);
}

TEST(PrivateMemory, OtherPlacesOfAnObjectAreOtherMappings) {
  EXPECT_EQ(pagesOf({{10, 1, "a", "1000-3000 r--p 00000000 08:01 100 /x\n"},
                     {20, 1, "b", "1000-3000 r--p 00002000 08:01 100 /x\n"},
                     {30, 1, "c", "1000-3000 r--p 00000000 08:02 100 /y\n"},
                     {40, 1, "d", "1000-3000 r--p 00000000 08:01 101 /z\n"}}),
            8u);
}

TEST(PrivateMemory, LargestSizeOfAMappingCounts) {
  EXPECT_EQ(pagesOf({{10, 1, "a", "1000-3000 r--p 00000000 08:01 100 /x\n"},
                     {20, 1, "b", "1000-9000 r--p 00000000 08:01 100 /x\n"},
                     {30, 1, "c", "1000-2000 r--p 00000000 08:01 100 /x\n"}}),
            8u);
}

TEST(PrivateMemory, PrivateWritableMappingCountsForEachUnrelatedProcess) {
  EXPECT_EQ(pagesOf({{10, 1, "a", DATA + HEAP}, {20, 1, "a", DATA + HEAP}}), 64u);
}

TEST(PrivateMemory, ForkedChildCountsHalfOfWhatItInherited) {
  EXPECT_EQ(pagesOf({{10, 1, "a", DATA + HEAP}, {20, 10, "a", DATA + HEAP}}), 48u);
}

TEST(PrivateMemory, EachForkedChildCountsHalf) {
  EXPECT_EQ(
      pagesOf({{10, 1, "a", HEAP}, {20, 10, "a", HEAP}, {30, 10, "a", HEAP}, {40, 10, "a", HEAP}}),
      16u + 3 * 8u);
}

TEST(PrivateMemory, ForkedGrandchildCountsHalf) {
  EXPECT_EQ(pagesOf({{30, 20, "a", HEAP}, {20, 10, "a", HEAP}, {10, 1, "a", HEAP}}), 32u);
}

TEST(PrivateMemory, ChildThatRunsAnotherProgramCountsInFull) {
  EXPECT_EQ(pagesOf({{10, 1, "sh", HEAP}, {20, 10, "daemon", HEAP}}), 32u);
}

TEST(PrivateMemory, PagesThatOnlyTheChildHasCountInFull) {
  const std::string grown = "00800000-00820000 rw-p 00000000 00:00 0 [heap]\n";
  EXPECT_EQ(pagesOf({{10, 1, "a", HEAP}, {20, 10, "a", grown}}), 16u + 32u - 8u);
  EXPECT_EQ(pagesOf({{10, 1, "a", grown}, {20, 10, "a", HEAP}}), 32u + 8u);
}

TEST(PrivateMemory, MappingInheritedInPiecesCountsHalf) {
  const std::string pieces =
      "00800000-00804000 rw-p 00000000 00:00 0\n"
      "00804000-00808000 r--p 00000000 00:00 0\n"
      "00808000-00820000 rw-p 00000000 00:00 0\n";
  // The parent's 4, 4 and 24 pages; of the child's 16, 4 and 8 are inherited.
  EXPECT_EQ(pagesOf({{10, 1, "a", pieces}, {20, 10, "a", HEAP}}), 32u + 16u - 6u);
  // The child's 4, 4 and 24 pages, of which 4 and 8 are inherited. Nobody may write
  // the middle ones.
  EXPECT_EQ(pagesOf({{10, 1, "a", HEAP}, {20, 10, "a", pieces}}), 16u + 32u - 6u);
}

TEST(PrivateMemory, HalfOfAnOddNumberIsRoundedDown) {
  const std::string odd = "00800000-00803000 rw-p 00000000 00:00 0\n";
  EXPECT_EQ(pagesOf({{10, 1, "a", odd}, {20, 10, "a", odd}}), 3u + 1u);
}

// A share such as 5/6 is no float; the product must not come out below 5.
TEST(PrivateMemory, NoPageIsLostByRoundingTheShare) {
  for (std::uint64_t pages = 1; pages < 400; ++pages) {
    for (const std::uint64_t inherited : {pages / 3 * 2, pages / 7 * 2}) {
      const auto mapping = [](std::uint64_t count) {
        char line[80];
        std::snprintf(line, sizeof(line), "10000000-%llx rw-p 0 00:00 0\n",
                      0x10000000ull + count * 4096);
        return std::string(line);
      };
      if (inherited == 0) continue;
      EXPECT_EQ(pagesOf({{10, 1, "a", mapping(inherited)}, {20, 10, "a", mapping(pages)}}),
                inherited + pages - inherited / 2)
          << pages << " " << inherited;
    }
  }
}

TEST(PrivateMemory, ReservedAddressesCountOnceForAFamily) {
  EXPECT_EQ(pagesOf({{10, 1, "a", RESERVED}, {20, 10, "a", RESERVED}}), 16u);
}

TEST(PrivateMemory, ProcessThatIsItsOwnParentIsNoFamily) {
  EXPECT_EQ(pagesOf({{10, 10, "a", HEAP}}), 16u);
}

TEST(PrivateMemory, MoreThanTheRangeIsTheLargestNumber) {
  EXPECT_EQ(pagesOf({{10, 1, "a", "1000-f00000001000 rw-p 0 00:00 0\n"}}), 2147483647u);
}

TEST(PrivateMemory, SharesAreFactorsOfTheMappings) {
  const MemoryTable table =
      tableOf({{10, 1, "a", TEXT + HEAP + SHARED}, {20, 10, "a", TEXT + HEAP + SHARED}});
  unsigned whole = 0;
  unsigned half = 0;
  for (const auto& [key, info] : table.mappings()) {
    if (info.share == 1.0f) ++whole;
    if (info.share == 0.5f) ++half;
  }
  EXPECT_EQ(whole, 3u);
  EXPECT_EQ(half, 1u);
  EXPECT_EQ(table.processes().at(20).maps.size(), 3u);
}

TEST(PrivateMemory, KeyOfAMappingHasSixteenBytes) { EXPECT_EQ(sizeof(hwcalc::map_idx_t), 16u); }

TEST(LockedMemory, KilobytesOfAllProcessesGiveWholePages) {
  EXPECT_EQ(
      tableOf({{10, 1, "a", "", 64}, {20, 1, "b", "", 3}, {30, 10, "a", "", 4}}).lockedPages(),
      17u);
}
