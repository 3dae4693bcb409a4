#include "quota/grace.h"

#include <gtest/gtest.h>

using QuotaMgmt::grace_atoll;

TEST(Grace, BlankTextIsZero) {
  EXPECT_EQ(grace_atoll(""), 0u);
  EXPECT_EQ(grace_atoll(" \t "), 0u);
}

TEST(Grace, ColonSeparatesHoursAndMinutes) {
  EXPECT_EQ(grace_atoll("23:59"), 86340u);
  EXPECT_EQ(grace_atoll("00:05"), 300u);
  EXPECT_EQ(grace_atoll("100:00"), 360000u);
}

TEST(Grace, UnitsMultiply) {
  EXPECT_EQ(grace_atoll("5seconds"), 5u);
  EXPECT_EQ(grace_atoll("5minutes"), 300u);
  EXPECT_EQ(grace_atoll("5hours"), 18000u);
  EXPECT_EQ(grace_atoll("7days"), 604800u);
  EXPECT_EQ(grace_atoll("1weeks"), 604800u);
}

TEST(Grace, MonthIsIntentionallyThirtyWeeks) {
  EXPECT_EQ(grace_atoll("1months"), 30u * 7 * 86400);
  EXPECT_EQ(grace_atoll("2months"), 36288000u);
}

TEST(Grace, UnknownOrDetachedUnitCountsAsSeconds) {
  EXPECT_EQ(grace_atoll("7"), 7u);
  EXPECT_EQ(grace_atoll("7 days"), 7u);
  EXPECT_EQ(grace_atoll("7day"), 7u);
  EXPECT_EQ(grace_atoll("7days "), 7u);
  EXPECT_EQ(grace_atoll("7Days"), 7u);
}

TEST(Grace, TextWithoutANumberIsZero) {
  EXPECT_EQ(grace_atoll("none"), 0u);
  EXPECT_EQ(grace_atoll("days"), 0u);
}
