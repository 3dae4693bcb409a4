#include "expand/config.h"

#include <gtest/gtest.h>

#include <clocale>

#include "expand/error.h"

using namespace Expand;

namespace {

ConfigOption option(const std::string& text) {
  ConfigOption result;
  result.set(text);
  return result;
}

template <typename T>
T valueOf(const std::string& text) {
  T value{};
  option(text).value(value, true);
  return value;
}

// What the conversion says, or "no error".
template <typename T>
std::string errorOf(const ConfigOption& from, bool required = true) {
  T value{};
  try {
    from.value(value, required);
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), Error::CONFIG_NO_OPTION);
    return error.what();
  }
  return "no error";
}

const std::string PREFIX = "[Config reader] No such option in the config. ";

}  // namespace

TEST(ConfigOption, IsUndefinedUntilSet) {
  ConfigOption fresh;
  EXPECT_FALSE(fresh.defined());
  std::string text = "earlier";
  fresh.value(text);
  EXPECT_EQ(text, "");
  fresh.set("");
  EXPECT_TRUE(fresh.defined());
}

TEST(ConfigOption, TextIsAsStored) {
  std::string text;
  option(" a # b ").value(text);
  EXPECT_EQ(text, " a # b ");
}

TEST(ConfigOption, TextIsCutToTheBuffer) {
  char buffer[8] = "#######";
  option("abcdef").value(buffer, 4);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(buffer[4], '#');
  option("abc").value(buffer, 4);
  EXPECT_STREQ(buffer, "abc");
  option("abcdef").value(buffer, 1);
  EXPECT_STREQ(buffer, "");
  buffer[0] = '#';
  option("abcdef").value(buffer, 0);
  EXPECT_EQ(buffer[0], '#');
}

TEST(ConfigOption, LongIsRead) {
  EXPECT_EQ(valueOf<long>("0"), 0);
  EXPECT_EQ(valueOf<long>("-17"), -17);
  EXPECT_EQ(valueOf<long>("010"), 10);
  EXPECT_EQ(valueOf<long>("9223372036854775807"), 9223372036854775807L);
  EXPECT_EQ(valueOf<long>("-9223372036854775808"), -9223372036854775807L - 1);
}

TEST(ConfigOption, LongThatIsNoneIsRefused) {
  for (const char* text : {"", "abc", "12x", "1.5", "0x10", "-", "1 2"}) {
    EXPECT_EQ(errorOf<long>(option(text)), PREFIX + "Option doesn't look like a long int") << text;
  }
  EXPECT_EQ(errorOf<long>(option(std::string("1\0", 2))),
            PREFIX + "Option doesn't look like a long int");
}

TEST(ConfigOption, LongOutOfRangeIsRefused) {
  EXPECT_EQ(errorOf<long>(option("9223372036854775808")),
            PREFIX + "Option value is too big for a long int");
  EXPECT_EQ(errorOf<long>(option("-9223372036854775809")),
            PREFIX + "Option value is too little for a long int");
}

TEST(ConfigOption, DoubleIsRead) {
  EXPECT_EQ(valueOf<double>("1.5"), 1.5);
  EXPECT_EQ(valueOf<double>("-2e3"), -2000.0);
  EXPECT_EQ(valueOf<double>("7"), 7.0);
}

TEST(ConfigOption, DoubleThatIsNoneIsRefused) {
  for (const char* text : {"", "abc", "1,5", "1.5x", "1e999"}) {
    EXPECT_EQ(errorOf<double>(option(text)), PREFIX + "Option value doesn't look like a double")
        << text;
  }
}

TEST(ConfigOption, BoolIsTrueOrFalse) {
  EXPECT_TRUE(valueOf<bool>("true"));
  EXPECT_FALSE(valueOf<bool>("false"));
  for (const char* text : {"", "yes", "1", "TRUE", "true "}) {
    EXPECT_EQ(errorOf<bool>(option(text)), PREFIX + "Option value doesn't look like bool") << text;
  }
}

TEST(ConfigOption, UndefinedIsAnErrorWhenRequired) {
  const ConfigOption undefined;
  EXPECT_EQ(errorOf<long>(undefined), PREFIX + "Option value is not defined");
  EXPECT_EQ(errorOf<double>(undefined), PREFIX + "Option value is not defined");
  EXPECT_EQ(errorOf<bool>(undefined), PREFIX + "Option value is not defined");
}

TEST(ConfigOption, UndefinedLeavesTheDefaultWhenNotRequired) {
  const ConfigOption undefined;
  long number = 5;
  undefined.value(number, false);
  EXPECT_EQ(number, 5);
  double real = 1.5;
  undefined.value(real, false);
  EXPECT_EQ(real, 1.5);
  bool flag = true;
  undefined.value(flag, false);
  EXPECT_TRUE(flag);
}

TEST(ConfigOption, WrongValueIsAnErrorAlsoWhenNotRequired) {
  EXPECT_EQ(errorOf<long>(option("x"), false), PREFIX + "Option doesn't look like a long int");
  EXPECT_EQ(errorOf<double>(option("x"), false),
            PREFIX + "Option value doesn't look like a double");
  EXPECT_EQ(errorOf<bool>(option("x"), false), PREFIX + "Option value doesn't look like bool");
}

TEST(ConfigOption, RefusedValueLeavesTheVariable) {
  long number = 5;
  EXPECT_THROW(option("99999999999999999999").value(number, true), Error);
  EXPECT_EQ(number, 5);
}

TEST(Config, SectionsAndOptionsKeepTheOrderOfTheirAppearance) {
  Config config;
  config["zeta"]["b"].set("1");
  config["alpha"]["z"].set("2");
  config["zeta"]["a"].set("3");
  ASSERT_EQ(config.sections().size(), 2u);
  EXPECT_EQ(config.sections().front().first, "zeta");
  EXPECT_EQ(config.sections().back().first, "alpha");
  const ConfigSection::Options& options = config.sections().front().second.options();
  ASSERT_EQ(options.size(), 2u);
  EXPECT_EQ(options.front().first, "b");
  EXPECT_EQ(options.back().first, "a");
}

TEST(Config, ReferencesStayValidWhileTheConfigurationGrows) {
  Config config;
  ConfigSection& section = config["first"];
  ConfigOption& first = section["option"];
  for (int i = 0; i < 100; ++i) config[std::to_string(i)][std::to_string(i)].set("x");
  first.set("value");
  std::string text;
  config["first"]["option"].value(text);
  EXPECT_EQ(text, "value");
}

TEST(Config, LookingUpAnOptionDoesNotDefineIt) {
  Config config;
  EXPECT_FALSE(config["a"]["b"].defined());
}

TEST(Config, ConstantLookupOfAMissingSectionFails) {
  const Config config;
  try {
    config["main"];
    FAIL() << "no error";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "[Config reader] No such section in the config. main");
  }
}

TEST(Config, ConstantLookupOfAMissingOptionIsUndefined) {
  Config config;
  config["main"]["there"].set("1");
  const Config& constant = config;
  EXPECT_TRUE(constant["main"]["there"].defined());
  EXPECT_FALSE(constant["main"]["missing"].defined());
  EXPECT_EQ(constant["main"].options().size(), 1u);
}

TEST(Config, NamesDifferByCase) {
  Config config;
  config["A"]["x"].set("1");
  EXPECT_FALSE(config["a"]["x"].defined());
  EXPECT_FALSE(config["A"]["X"].defined());
}
