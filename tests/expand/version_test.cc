#include <gtest/gtest.h>

#include "expand/strings.h"

using namespace Expand;

TEST(Ver2str, NumberOfComponentsFollowsTheSize) {
  EXPECT_EQ(ver2str(0x01020304), "1.2.3.4");
  EXPECT_EQ(ver2str(0x010203), "1.2.3");
  EXPECT_EQ(ver2str(0x0102), "1.2");
  EXPECT_EQ(ver2str(5), "0.5");
  EXPECT_EQ(ver2str(0), "0.0");
}

TEST(Ver2str, EdgesOfTheSizes) {
  EXPECT_EQ(ver2str(0xffff), "255.255");
  EXPECT_EQ(ver2str(0x10000), "1.0.0");
  EXPECT_EQ(ver2str(0xffffff), "255.255.255");
  EXPECT_EQ(ver2str(0x1000000), "1.0.0.0");
  EXPECT_EQ(ver2str(0xffffffff), "255.255.255.255");
}

TEST(Str2ver, LastComponentIsTheLowestByte) {
  EXPECT_EQ(str2ver("1.2"), 0x0102u);
  EXPECT_EQ(str2ver("2.6.18"), 0x020612u);
  EXPECT_EQ(str2ver("1.2.3.4"), 0x01020304u);
}

TEST(Str2ver, IsTheInverseOfVer2str) {
  for (const char* text : {"2.6.18", "0.5", "1.2", "1.0.0", "255.255.255.255"}) {
    EXPECT_EQ(ver2str(str2ver(text)), text);
  }
}

TEST(Str2ver, OtherNumbersOfComponentsGiveZero) {
  EXPECT_EQ(str2ver("1"), 0u);
  EXPECT_EQ(str2ver(""), 0u);
  EXPECT_EQ(str2ver("1.2.3.4.5"), 0u);
}

TEST(Str2ver, ComponentAbove255SpillsIntoTheNextByteIntended) {
  EXPECT_EQ(str2ver("2.256"), 0x0300u);
  EXPECT_EQ(str2ver("2.0.260"), 0x020104u);
  // Into a bit that is set already: nothing is carried.
  EXPECT_EQ(str2ver("1.256"), 0x0100u);
}

TEST(Str2ver, ComponentsAreReadAsFarAsTheyAreNumbers) {
  EXPECT_EQ(str2ver("2.6.18-194el5"), 0x020612u);
  EXPECT_EQ(str2ver("2..x"), 0x020000u);
}
