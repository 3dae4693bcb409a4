#include "quota/quota_vz_stat.h"

#include <gtest/gtest.h>

using namespace QuotaMgmt;

TEST(QuotaVzStat, SectionsFillTheRecords) {
  Quotas users, groups;
  EXPECT_EQ(quota_parse_vz("   resource          usage       softlimit      hardlimit    grace\n"
                           "  1k-blocks              1               2              3    off\n"
                           "User/group quota: on,active\n"
                           "User/group grace times and quotafile flags:\n"
                           " kind blocks inodes\n"
                           " user 604800 3600\n"
                           " group 60 0\n"
                           "User/group objects:\n"
                           "kind id blocks soft hard grace inodes soft hard grace\n"
                           "user 0 10 0 0 0 5 0 0 0\n"
                           "user\t1000   20 100 200 7 6 10 20 8\n"
                           "group 4294967295 1 2 3 4 5 6 7 8\n",
                           &users, &groups),
            0);
  EXPECT_EQ(users.blockGrace, 604800u);
  EXPECT_EQ(users.inodeGrace, 3600u);
  EXPECT_EQ(groups.blockGrace, 60u);
  EXPECT_EQ(groups.inodeGrace, 0u);
  EXPECT_EQ(users.entries.size(), 2u);
  EXPECT_EQ(users.entries[0], Quota());
  EXPECT_EQ(users.entries[1000], (Quota{100, 200, 7, 10, 20, 8}));
  EXPECT_EQ(groups.entries.size(), 1u);
  EXPECT_EQ(groups.entries[4294967295u], (Quota{2, 3, 4, 6, 7, 8}));
}

TEST(QuotaVzStat, LinesWithoutTheirFieldsAreSkipped) {
  Quotas users, groups;
  EXPECT_EQ(quota_parse_vz("user 1 2\n"
                           "User/group grace times\nuser\nuser 1\nuser 1 2 3\nuser 1 x\n\n"
                           "User/group objects\nuser 1 2 3 4 5 6 7 8\nuser a 2 3 4 5 6 7 8 9\n",
                           &users, &groups),
            0);
  EXPECT_EQ(users.blockGrace, 0u);
  EXPECT_TRUE(users.entries.empty());
  EXPECT_TRUE(groups.entries.empty());
}
