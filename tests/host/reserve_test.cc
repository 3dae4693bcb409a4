#include "host/reserve.h"

#include <gtest/gtest.h>

#include "host/error.h"

namespace {

TEST(Reserve, IsFivePercentUnlessTheHostSaysOtherwise) {
  EXPECT_EQ(host::reservePercent({}), 5);
  EXPECT_EQ(host::reservePercent({{"RESERVE", "0"}}), 0);
  EXPECT_EQ(host::reservePercent({{"RESERVE", "50"}}), 50);
}

TEST(Reserve, NonsenseIsRefusedWithItsValue) {
  for (const char* value : {"51", "-1", "5%", "five", "5 ", "99999999999999999999"}) {
    try {
      host::reservePercent({{"RESERVE", value}});
      ADD_FAILURE() << value;
    } catch (const host::Error& error) {
      EXPECT_EQ(std::string(error.what()),
                "RESERVE: '" + std::string(value) + "' is not a percentage from 0 to 50");
    }
  }
}

TEST(Reserve, IsRoundedUpAndNeverOverflows) {
  EXPECT_EQ(host::reserveOf(1000, 5), 50);
  EXPECT_EQ(host::reserveOf(1001, 5), 51);
  EXPECT_EQ(host::reserveOf(0, 5), 0);
  EXPECT_EQ(host::reserveOf(-7, 5), 0);
  EXPECT_EQ(host::reserveOf(INT64_MAX, 50), INT64_MAX / 100 * 50 + 4);
}

}  // namespace
