// JSON of another machine, within limits.

#include "agent/wire/bounded_json.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

std::string problemOf(const std::string& text, const agent::JsonLimits& limits = {}) {
  try {
    agent::parseBounded(text, limits);
  } catch (const std::runtime_error& problem) {
    return problem.what();
  }
  return "";
}

TEST(BoundedJson, ReadsWhatJsonHolds) {
  for (const char* text :
       {"null", "true", "-7", "18446744073709551615", "1.5", "\"a\\u00e4\\n\"", "[]", "{}",
        "[1,[2,{\"a\":[3]}],{}]", "{\"b\":{\"c\":null},\"a\":[{},[]]}", " [ 1 , 2 ] "}) {
    EXPECT_EQ(agent::parseBounded(text), json::parse(text)) << text;
  }
}

TEST(BoundedJson, TheLastOfEqualNamesCounts) {
  EXPECT_EQ(agent::parseBounded("{\"a\":{\"b\":1},\"a\":2}"), json::parse("{\"a\":2}"));
}

TEST(BoundedJson, WhatIsNotJsonIsRefused) {
  for (const char* text : {"", "{", "[1,]", "{} {}", "nul", "\"\xff\"", "{\"a\" 1}"}) {
    EXPECT_EQ(problemOf(text), "it is not JSON") << text;
  }
}

TEST(BoundedJson, NumbersThatNoIntegerHoldsAreRefused) {
  for (const char* text :
       {"1180591620717411303424", "-1180591620717411303424", "1e300", "[1e19]"}) {
    EXPECT_EQ(problemOf(text), "it holds too large a number") << text;
  }
  EXPECT_EQ(problemOf("9223372036854775807"), "");
  EXPECT_EQ(problemOf("[-9223372036854775808,1e18]"), "");
}

TEST(BoundedJson, DepthIsBoundedHoweverLongTheTextIs) {
  EXPECT_EQ(problemOf(std::string(16, '[') + std::string(16, ']')), "");
  EXPECT_EQ(problemOf(std::string(17, '[') + std::string(17, ']')),
            "it is nested more than 16 deep");
  // A reader that looks at all of it again for each level takes days for this.
  EXPECT_EQ(problemOf(std::string(16 << 20, '[') + std::string(16 << 20, ']')),
            "it is nested more than 16 deep");
}

TEST(BoundedJson, ValuesAreBoundedHoweverSmallTheyAre) {
  std::string text = "[";
  for (int i = 0; i < 5 << 20; ++i) text += "[],";
  EXPECT_EQ(problemOf(text + "0]"), "it holds more than 100000 values");
  EXPECT_EQ(problemOf("[1,2,3]", {16, 4}), "");
  EXPECT_EQ(problemOf("[1,2,3,4]", {16, 4}), "it holds more than 4 values");
  // Names count.
  EXPECT_EQ(problemOf("{\"a\":1}", {16, 3}), "");
  EXPECT_EQ(problemOf("{\"a\":1}", {16, 2}), "it holds more than 2 values");
}

}  // namespace
