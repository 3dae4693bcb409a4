#include "expand/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <string>

using Expand::ConfParserErrHandler;
using Expand::Error;
using testing::StartsWith;

namespace {

struct Row {
  unsigned code;
  unsigned domain;
  unsigned category;
  const char* text;
};

class ErrorTable : public testing::TestWithParam<Row> {};

}  // namespace

TEST_P(ErrorTable, CodeGivesDomainCategoryAndDescription) {
  const Row& row = GetParam();
  const Error error(static_cast<Error::Code>(row.code), "message");
  EXPECT_EQ(error.code(), row.code);
  EXPECT_EQ(error.domain(), row.domain);
  EXPECT_EQ(error.category(), row.category);
  EXPECT_STREQ(error.what(), (std::string(row.text) + ". message").c_str());
}

INSTANTIATE_TEST_SUITE_P(
    AllRows, ErrorTable,
    testing::Values(Row{6000, 6, 61, "[Config reader] Error reading config file"},
                    Row{6001, 6, 61, "[Config reader] Error writing config file"},
                    Row{6002, 6, 61, "[Config reader] Error parsing config file"},
                    Row{6003, 6, 62, "[Config reader] No such section in the config"},
                    Row{6004, 6, 62, "[Config reader] No such option in the config"},
                    Row{10000, 10, 100, "[Caller] Generic error"},
                    Row{0, 0, 0, "[Unknown error domain] Unknown or general internal error"},
                    Row{12345, 0, 0, "[Unknown error domain] Unknown or general internal error"}));

TEST(Error, EnumeratorsHaveTheValuesOfTheTable) {
  EXPECT_EQ(Error::CONFIG_READ, 6000u);
  EXPECT_EQ(Error::CONFIG_WRITE, 6001u);
  EXPECT_EQ(Error::CONFIG_PARSE, 6002u);
  EXPECT_EQ(Error::CONFIG_NO_SECTION, 6003u);
  EXPECT_EQ(Error::CONFIG_NO_OPTION, 6004u);
  EXPECT_EQ(Error::CALLER_GENERIC, 10000u);
}

TEST(Error, MessageIsFormatted) {
  const Error error(Error::CALLER_GENERIC, "waitpid returned -1: %s", std::strerror(ECHILD));
  EXPECT_STREQ(error.what(), "[Caller] Generic error. waitpid returned -1: No child processes");
}

TEST(Error, ForkFailureReadsAsCallersLogIt) {
  const Error error(Error::CALLER_GENERIC, "Fork returned: %s", std::strerror(ENOMEM));
  EXPECT_STREQ(error.what(), "[Caller] Generic error. Fork returned: Cannot allocate memory");
}

TEST(Error, WhatGivesTheSameTextAgain) {
  const Error error(Error::CONFIG_PARSE, "%d", 7);
  const std::string first = error.what();
  EXPECT_EQ(first, error.what());
}

TEST(Error, CopyKeepsEverythingAndHasItsOwnText) {
  const Error error(Error::CONFIG_PARSE, "line %d", 3);
  const Error copy(error);
  EXPECT_STREQ(copy.what(), error.what());
  EXPECT_NE(copy.what(), error.what());
  EXPECT_EQ(copy.code(), error.code());
  EXPECT_EQ(copy.domain(), error.domain());
  EXPECT_EQ(copy.category(), error.category());
}

TEST(Error, LongMessageIsCutAt4095Characters) {
  const std::string long_message(5000, 'x');
  const Error error(Error::CALLER_GENERIC, "%s", long_message.c_str());
  // The text in front of it pushes the message further out of the what text.
  const std::string prefix = "[Caller] Generic error. ";
  EXPECT_EQ(std::string(error.what()), prefix + std::string(4095 - prefix.size(), 'x'));
}

// Seen where the object keeps the message: in its last field.
TEST(Error, StoredMessageHas4095CharactersOf5000) {
  const std::string long_message(5000, 'x');
  const Error error(Error::CALLER_GENERIC, "%s", long_message.c_str());
  const char* const end = reinterpret_cast<const char*>(&error + 1);
  EXPECT_STREQ(end - Error::kTextSize, std::string(4095, 'x').c_str());
}

TEST(Error, IsCaughtAsStandardException) {
  try {
    throw Error(Error::CONFIG_NO_OPTION, "x");
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "[Config reader] No such option in the config. x");
  }
}

TEST(ConfParserErrHandler, ThrowsACopy) {
  const Error error(Error::CONFIG_PARSE, "line %d", 3);
  ConfParserErrHandler handler;
  try {
    handler(error);
    FAIL() << "it returned";
  } catch (const Error& thrown) {
    EXPECT_NE(&thrown, &error);
    EXPECT_STREQ(thrown.what(), "[Config reader] Error parsing config file. line 3");
  }
}
