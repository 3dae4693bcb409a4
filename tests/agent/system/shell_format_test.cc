#include "agent/system/shell_format.h"

#include <gtest/gtest.h>

#include "framework/errors.h"

namespace {

using agent::ShellVariables;

ShellVariables parsed(const std::string& text) {
  ShellVariables variables;
  EXPECT_EQ(agent::parseShell(text, variables), 0) << QXL::getErrorMessage();
  return variables;
}

TEST(ShellFormat, ReadsAssignmentsAsAShellDoes) {
  const ShellVariables variables = parsed(
      "# a comment\n"
      "\n"
      "A=bare\n"
      "B=\"two words\"\n"
      "C='single $NOT expanded'\n"
      "D=\"quote \\\" back \\\\ dollar \\$5\"\n"
      "export E=\"exported\"   # and a comment\n"
      "  F=indented\n"
      "G=\n"
      "H=\"\"\n"
      "I=a\"b c\"d\n"
      "VE_ROOT=\"/var/lib/qx/root/$VEID\"\n"
      "BARE=/x/$VEID/${VEID}\n"
      "A=last");
  EXPECT_EQ(variables, (ShellVariables{{"A", "last"},
                                       {"B", "two words"},
                                       {"C", "single \\$NOT expanded"},
                                       {"D", "quote \" back \\ dollar \\$5"},
                                       {"E", "exported"},
                                       {"F", "indented"},
                                       {"G", ""},
                                       {"H", ""},
                                       {"I", "ab cd"},
                                       {"VE_ROOT", "/var/lib/qx/root/$VEID"},
                                       {"BARE", "/x/$VEID/${VEID}"}}));
}

TEST(ShellFormat, AValueMayRunOverLines) {
  EXPECT_EQ(parsed("A=\"one\ntwo\"\nB=3\n"), (ShellVariables{{"A", "one\ntwo"}, {"B", "3"}}));
}

TEST(ShellFormat, WhatIsNoAssignmentIsRefusedWithItsLine) {
  ShellVariables variables;
  for (const char* line :
       {"echo hello", "A", "=x", "1A=x", "A=one two", "A=\"open", "A='open", "A=`id`", "A=$(id)",
        "A=\"$(id)\"", "A=\"`id`\"", "A=x;B=y", "A=x|y", "A=<x", "A=*"}) {
    EXPECT_EQ(agent::parseShell(std::string("OK=1\n") + line + "\n", variables), -1) << line;
    EXPECT_EQ(QXL::getErrorMessage(), std::string("line 2 is not an assignment: '") + line + "'");
  }
}

TEST(ShellFormat, LinesAreCountedThroughValuesThatRunOver) {
  ShellVariables variables;
  EXPECT_EQ(agent::parseShell("A=\"1\n2\n3\"\nB=1\nbad\n", variables), -1);
  EXPECT_EQ(QXL::getErrorMessage(), "line 5 is not an assignment: 'bad'");
}

TEST(ShellFormat, WhatIsWrittenIsReadBack) {
  const ShellVariables variables = {
      {"A", "plain"},      {"B", "two words"},       {"C", "quote\" back\\slash `tick'"},
      {"D", "$VEID"},      {"E", "literal \\$VEID"}, {"F", ""},
      {"G", "line\nline"}, {"H", "\xff\xfe"}};
  EXPECT_EQ(parsed(agent::formatShell(variables)), variables);
}

TEST(ShellFormat, AShellReadsTheSame) {
  const ShellVariables variables = {{"A", "two words \"quoted\" back\\slash `tick` 'x'"},
                                    {"E", "literal \\$HOME"}};
  const std::string script = agent::formatShell(variables) + "printf '%s|%s' \"$A\" \"$E\"";
  FILE* shell = popen(("sh <<'END'\n" + script + "\nEND").c_str(), "r");
  char buffer[256];
  const size_t count = fread(buffer, 1, sizeof buffer, shell);
  pclose(shell);
  EXPECT_EQ(std::string(buffer, count),
            "two words \"quoted\" back\\slash `tick` 'x'|literal $HOME");
}

}  // namespace
