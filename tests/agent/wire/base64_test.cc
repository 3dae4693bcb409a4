#include "agent/wire/base64.h"

#include <gtest/gtest.h>

namespace {

TEST(Base64, EncodesTheStandardVectors) {
  EXPECT_EQ(agent::encodeBase64(""), "");
  EXPECT_EQ(agent::encodeBase64("f"), "Zg==");
  EXPECT_EQ(agent::encodeBase64("fo"), "Zm8=");
  EXPECT_EQ(agent::encodeBase64("foo"), "Zm9v");
  EXPECT_EQ(agent::encodeBase64("foobar"), "Zm9vYmFy");
}

TEST(Base64, AnyBytesComeBack) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  for (size_t length = 0; length <= all.size(); ++length) {
    const std::string bytes = all.substr(0, length);
    EXPECT_EQ(agent::decodeBase64(agent::encodeBase64(bytes)), bytes) << length;
  }
}

TEST(Base64, TextThatIsNotBase64IsRefused) {
  for (const char* text :
       {"Z", "Zg=", "Zg", "Zg==Zg==", "Z===", "====", "Zm9*", "Zh==", "Zm9=", "Zm 9v", "Zm9v\n"}) {
    EXPECT_EQ(agent::decodeBase64(text), std::nullopt) << text;
  }
}

}  // namespace
