#include "quota/mtab.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using QuotaMgmt::parseMtab;
using testing::ElementsAre;

TEST(Mtab, FieldsAndOptionsAreSplit) {
  const auto entries = parseMtab(
      "/dev/sda1 / ext3 rw,usrquota,grpquota 0 0\n"
      "proc /proc proc rw 0 0\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].device, "/dev/sda1");
  EXPECT_EQ(entries[0].mountPoint, "/");
  EXPECT_THAT(entries[0].options, ElementsAre("rw", "usrquota", "grpquota"));
  EXPECT_EQ(entries[1].mountPoint, "/proc");
}

TEST(Mtab, LinesWithoutOptionsAreSkipped) {
  EXPECT_TRUE(parseMtab("").empty());
  EXPECT_TRUE(parseMtab("\n\n/dev/sda1 / ext3\n").empty());
}
