#include "quota/quota_diff.h"

#include <gtest/gtest.h>

using namespace QuotaMgmt;

namespace {

Quotas one(unsigned id, const Quota& quota) {
  Quotas quotas;
  quotas.entries[id] = quota;
  return quotas;
}

}  // namespace

TEST(QuotaDiff, EqualRecordsDifferInNothing) {
  const Quotas same = one(5, {1, 2, 3, 4, 5, 6});
  Quotas toClear, toSet;
  quota_mkdiff(&same, &same, &toClear, &toSet);
  EXPECT_TRUE(toClear.entries.empty());
  EXPECT_TRUE(toSet.entries.empty());
}

TEST(QuotaDiff, AnyOfTheSixValuesMakesADifference) {
  const Quota base = {1, 2, 3, 4, 5, 6};
  Quota changed[6] = {base, base, base, base, base, base};
  changed[0].blockSoft = 9;
  changed[1].blockHard = 9;
  changed[2].blockGrace = 9;
  changed[3].inodeSoft = 9;
  changed[4].inodeHard = 9;
  changed[5].inodeGrace = 9;
  for (const Quota& quota : changed) {
    const Quotas current = one(7, base);
    const Quotas wanted = one(7, quota);
    Quotas toClear, toSet;
    quota_mkdiff(&current, &wanted, &toClear, &toSet);
    EXPECT_TRUE(toClear.entries.empty());
    ASSERT_EQ(toSet.entries.size(), 1u);
    EXPECT_EQ(toSet.entries[7], quota);
  }
}

TEST(QuotaDiff, AbsentIdsAreSetAndUnwantedOnesCleared) {
  Quotas current = one(1, {1, 0, 0, 0, 0, 0});
  current.entries[2].blockHard = 2;
  const Quotas wanted = one(3, {});
  Quotas toClear, toSet;
  quota_mkdiff(&current, &wanted, &toClear, &toSet);
  EXPECT_EQ(toClear.entries, current.entries);
  EXPECT_EQ(toSet.entries, wanted.entries);
}

TEST(QuotaDiff, OutputsAreEmptiedFirst) {
  const Quotas nothing;
  Quotas toClear = one(1, {});
  Quotas toSet = one(2, {});
  toSet.blockGrace = 5;
  quota_mkdiff(&nothing, &nothing, &toClear, &toSet);
  EXPECT_TRUE(toClear.entries.empty());
  EXPECT_TRUE(toSet.entries.empty());
  EXPECT_EQ(toSet.blockGrace, 0u);
}
