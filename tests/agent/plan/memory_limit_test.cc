// Memory limits of servers that are too large for the formula's 32 bits.

#include "agent/plan/memory_limit.h"

#include <gtest/gtest.h>

namespace {

constexpr long long kPage = 4096;

using Records = std::set<QXL::QXLQoS>;

QXL::QXLQoS record(const char* name, long long barrier, long long limit) {
  return {name, barrier, true, limit};
}

// The records of a server with that many private pages.
Records records(long long privatePages, long long limit) {
  return {
      record("kmemsize", 1000000, 1000000),     record("tcpsndbuf", 5000000, 5242880),
      record("othersockbuf", 5000000, 5242880), record("privvmpages", privatePages, privatePages),
      record("lockedpages", 256, 256),          record("slmmemorylimit", limit, limit)};
}

QXL::QXLQoS memoryLimit(const Records& all) { return *all.find(record("slmmemorylimit", 0, 0)); }

long long sumOf(long long privatePages) {
  return 1000000 + 2 * 5242880 + 5242880 + 262144 + kPage * privatePages + kPage * 256;
}

TEST(MemoryLimit, OfAServerWithin31BitsStays) {
  // The last page count whose product is a positive 32-bit number.
  Records all = records(524287, 123);
  EXPECT_FALSE(agent::correctMemoryLimit(all, kPage, 1.0));
  EXPECT_EQ(memoryLimit(all).limit, 123);
}

TEST(MemoryLimit, BeyondIsTheSameSumIn64Bits) {
  Records all = records(524288, -410929984);
  const auto corrected = agent::correctMemoryLimit(all, kPage, 1.0);
  ASSERT_TRUE(corrected);
  EXPECT_EQ(corrected->computed, -410929984);
  EXPECT_EQ(corrected->corrected, sumOf(524288));
  EXPECT_EQ(memoryLimit(all).limit, sumOf(524288));
  EXPECT_EQ(memoryLimit(all).barrier, sumOf(524288));
  EXPECT_TRUE(memoryLimit(all).barrierPresent);
}

TEST(MemoryLimit, ThatWrappedToASmallPositiveOneIsCorrectedToo) {
  // 5 GiB of private memory, which in 32 bits is 1 GiB: the container's database
  // would be killed.
  Records all = records(5 * 262144, 1073741824);
  const auto corrected = agent::correctMemoryLimit(all, kPage, 1.0);
  ASSERT_TRUE(corrected);
  EXPECT_EQ(corrected->corrected, sumOf(5 * 262144));
}

TEST(MemoryLimit, IsScaledLikeTheFormula) {
  Records all = records(524288, 0);
  agent::correctMemoryLimit(all, kPage, 2.0);
  EXPECT_EQ(memoryLimit(all).limit, 2 * sumOf(524288));
}

TEST(MemoryLimit, WrapsByLockedPagesAndBuffersToo) {
  Records locked = records(0, 0);
  locked.erase(record("lockedpages", 0, 0));
  locked.insert(record("lockedpages", 524288, 524288));
  EXPECT_TRUE(agent::correctMemoryLimit(locked, kPage, 1.0));
  Records buffers = records(0, 0);
  buffers.erase(record("tcpsndbuf", 0, 0));
  buffers.insert(record("tcpsndbuf", 0, 1LL << 30));
  EXPECT_TRUE(agent::correctMemoryLimit(buffers, kPage, 1.0));
}

TEST(MemoryLimit, StopsAtTheLargestNumber) {
  Records all = records(9223372036854775807LL, 0);
  const auto corrected = agent::correctMemoryLimit(all, kPage, 1.0);
  ASSERT_TRUE(corrected);
  EXPECT_EQ(corrected->corrected, 9223372036854775807LL);
}

TEST(MemoryLimit, IsLeftAloneWhenARecordIsMissing) {
  for (const char* name :
       {"kmemsize", "tcpsndbuf", "othersockbuf", "privvmpages", "lockedpages", "slmmemorylimit"}) {
    Records all = records(524288, 77);
    all.erase(record(name, 0, 0));
    EXPECT_FALSE(agent::correctMemoryLimit(all, kPage, 1.0)) << name;
  }
}

}  // namespace
