#include "host/copy_pace.h"

#include <gtest/gtest.h>

using host::CopyPace;
using host::parseRate;

TEST(CopyPace, RatesHaveTheUnitsOfRsync) {
  EXPECT_EQ(parseRate("500"), 500u);
  EXPECT_EQ(parseRate("500K"), 500u);
  EXPECT_EQ(parseRate("20m"), 20u << 10);
  EXPECT_EQ(parseRate("2G"), 2u << 20);
  EXPECT_EQ(parseRate("1048576G"), host::kMostKibPerSecond);
}

TEST(CopyPace, AnythingElseIsNoRate) {
  for (const char* text : {"", "0", "0M", "M", "-5", "5 M", "5T", "1.5M", "5MB", "1048577G",
                           "18446744073709551616", "99999999999999999999G"})
    EXPECT_EQ(parseRate(text), std::nullopt) << text;
}

TEST(CopyPace, TheSlowerOneCounts) {
  EXPECT_EQ(host::slowerOf({}, {}), CopyPace{});
  EXPECT_EQ(host::slowerOf({5, false}, {}), (CopyPace{5, false}));
  EXPECT_EQ(host::slowerOf({}, {5, true}), (CopyPace{5, true}));
  EXPECT_EQ(host::slowerOf({7, false}, {5, true}), (CopyPace{5, true}));
}
