#include "node/quota_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"

namespace {

using node::formatQuotaTable;
using node::parseQuotaTable;
using node::QuotaKind;
using node::QuotaTable;
using testing::HasSubstr;

QuotaTable sample() {
  QuotaTable table;
  table.of(QuotaKind::kUser).grace = {86400, 3600};
  table.of(QuotaKind::kUser).objects[1000] = {{5, 100, 200, 0}, {1, 10, 20, 7}};
  table.of(QuotaKind::kUser).objects[4294967295] = {{0, 0, 18446744073709551615u, 0}, {0, 0, 0, 0}};
  table.of(QuotaKind::kGroup).objects[0] = {{0, 1, 0, 0}, {0, 0, 0, 0}};
  return table;
}

constexpr char kSampleText[] =
    "User/group grace times\n"
    "# kind block-grace inode-grace\n"
    "user 86400 3600\n"
    "group 604800 604800\n"
    "User/group objects\n"
    "# kind id block-used block-soft block-hard block-grace"
    " inode-used inode-soft inode-hard inode-grace\n"
    "user 1000 5 100 200 0 1 10 20 7\n"
    "user 4294967295 0 0 18446744073709551615 0 0 0 0 0\n"
    "group 0 0 1 0 0 0 0 0 0\n";

TEST(QuotaTable, IsWrittenInItsFixedForm) { EXPECT_EQ(formatQuotaTable(sample()), kSampleText); }

TEST(QuotaTable, ReadsBackWhatWasWritten) { EXPECT_TRUE(parseQuotaTable(kSampleText) == sample()); }

TEST(QuotaTable, EmptyTextIsTheEmptyTable) { EXPECT_TRUE(parseQuotaTable("") == QuotaTable()); }

TEST(QuotaTable, ObjectWithoutLimitsIsNotWritten) {
  QuotaTable table;
  table.of(QuotaKind::kUser).objects[7] = {{9, 0, 0, 0}, {9, 0, 0, 0}};
  EXPECT_EQ(formatQuotaTable(table), formatQuotaTable(QuotaTable()));
}

TEST(QuotaTable, MalformedLinesAreRefusedWithTheirNumber) {
  const std::string grace = "User/group grace times\n";
  const std::string objects = "User/group objects\n";
  const std::pair<std::string, std::string> cases[] = {
      {"user 1 2\n", "line 1: text before the first section"},
      {grace + "user 1\n", "line 2: wrong number of words"},
      {grace + "user 1 2 3\n", "line 2: wrong number of words"},
      {grace + "other 1 2\n", "line 2: 'user' or 'group' expected"},
      {grace + "user 1 -2\n", "line 2: decimal number expected"},
      {grace + "user 1 0x2\n", "line 2: decimal number expected"},
      {objects + "user 1 2 3 4 5 6 7 8\n", "line 2: wrong number of words"},
      {objects + "user 4294967296 0 0 0 0 0 0 0 0\n", "line 2: the id is out of range"},
      {objects + "user 1 0 0 18446744073709551616 0 0 0 0 0\n", "line 2: decimal number expected"},
  };
  for (const auto& [text, expected] : cases) {
    try {
      parseQuotaTable(text);
      ADD_FAILURE() << "accepted: " << text;
    } catch (const host::Error& error) {
      EXPECT_EQ(error.what(), expected);
    }
  }
}

}  // namespace
