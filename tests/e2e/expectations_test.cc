#include "e2e/expectations.h"

#include <gtest/gtest.h>

namespace {

using treediff::Expectations;

TEST(Expectations, OnlyTheNamedAspectsOfAPathAreAllowed) {
  Expectations list;
  list.add("# what the script edits\n\n/etc/fstab  size,content  the script writes it\n");
  ASSERT_EQ(list.all().size(), 1U);
  EXPECT_EQ(list.all()[0].reason, "the script writes it");
  EXPECT_NE(list.allow("/etc/fstab", "size"), nullptr);
  EXPECT_EQ(list.allow("/etc/fstab", "owner"), nullptr);
  EXPECT_EQ(list.allow("/etc/fstab2", "size"), nullptr);
  EXPECT_EQ(list.all()[0].used, 1U);
}

TEST(Expectations, StarStopsAtASlash) {
  Expectations list;
  list.add("/proc/* excluded not files\n");
  EXPECT_TRUE(list.excludes("/proc/1"));
  EXPECT_FALSE(list.excludes("/proc"));
  EXPECT_FALSE(list.excludes("/proc/1/maps"));
}

TEST(Expectations, TwoStarsAtTheEndMeanEverythingBelow) {
  Expectations list;
  list.add("/var/lib/*/data/** any it moves\n");
  EXPECT_NE(list.allow("/var/lib/db/data/a", "size"), nullptr);
  EXPECT_NE(list.allow("/var/lib/db/data/a/b", "missing"), nullptr);
  EXPECT_EQ(list.allow("/var/lib/db/data", "time"), nullptr);
}

TEST(Expectations, AnUnknownAspectIsRefused) {
  Expectations list;
  EXPECT_THROW(list.add("/etc/fstab colour why not\n"), std::runtime_error);
}

TEST(Expectations, AnExpectationWithoutAReasonIsRefused) {
  Expectations list;
  EXPECT_THROW(list.add("/etc/fstab size\n"), std::runtime_error);
}

}  // namespace
