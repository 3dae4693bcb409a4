#include "node/set_variables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "node/error.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(SetVariables, WordsAreRead) {
  EXPECT_THAT(node::parseAssignments({"NUMPROC=1:2", "HOSTNAME=", "NOTE=a=b c"}),
              ElementsAre(Pair("NUMPROC", "1:2"), Pair("HOSTNAME", ""), Pair("NOTE", "a=b c")));
}

TEST(SetVariables, WhatWouldBreakTheContainerIsRefused) {
  for (const char* word : {"NUMPROC", "=1", "numproc=1", "1A=1", "VE_ROOT=/x", "VE_PRIVATE=/x",
                           "VEID=7", "LOCKDIR=/x", "NOTE=a\nb"}) {
    EXPECT_THROW(node::parseAssignments({word}), node::Error) << word;
  }
}

TEST(SetVariables, LinesAreReplacedInPlaceAndTheRestStays) {
  EXPECT_EQ(node::withAssignments("# Limits\nNUMPROC=\"1:1\" # old\n\nHOSTNAME=web\nNUMPROC=2\n",
                                  {{"NUMPROC", "3:3"}, {"NOTE", "it's"}}, {}),
            "# Limits\nNUMPROC='3:3'\n\nHOSTNAME=web\nNOTE='it'\\''s'\n");
}

TEST(SetVariables, FileWithoutLastLineEnd) {
  EXPECT_EQ(node::withAssignments("A=1", {{"B", "2"}}, {}), "A=1\nB='2'\n");
  EXPECT_EQ(node::withAssignments("", {{"B", "2"}}, {}), "B='2'\n");
}

TEST(SetVariables, LineInsideALongerValueIsNoAssignment) {
  const std::string text = "NOTE='first\nNUMPROC=7\nlast'\n";
  const std::string changed = node::withAssignments(text, {{"NUMPROC", "9"}}, {});
  const node::ShellVars vars = node::parseShellVars(changed);
  EXPECT_EQ(vars.at("NOTE"), "first\nNUMPROC=7\nlast");
  EXPECT_EQ(vars.at("NUMPROC"), "9");
}

TEST(SetVariables, LastAssignmentOfAVariableWinsInTheListToo) {
  EXPECT_EQ(node::withAssignments("A=1\n", {{"A", "2"}, {"A", "3"}}, {}), "A='3'\n");
}

TEST(SetVariables, ReferencesToOtherVariablesSurvive) {
  EXPECT_EQ(node::withAssignments("A=$VEID\nB=1\n", {{"B", "2"}}, {{"VEID", "101"}}),
            "A=$VEID\nB='2'\n");
}

}  // namespace
