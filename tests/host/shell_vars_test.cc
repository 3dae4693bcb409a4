#include "host/shell_vars.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"
#include "support/temp_tree.h"

namespace {

using host::Error;
using host::ExitCode;
using host::parseShellVars;
using host::ShellVars;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

std::string refusal(const std::string& text) {
  try {
    parseShellVars(text);
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), ExitCode::kBadConfig);
    return error.what();
  }
  return "accepted";
}

TEST(ShellVars, ReadsPlainQuotedAndExportedAssignments) {
  EXPECT_THAT(parseShellVars("A=plain\nB=\"two words\"\nC='single $A'\nexport D=4\n\nE="),
              ElementsAre(Pair("A", "plain"), Pair("B", "two words"), Pair("C", "single $A"),
                          Pair("D", "4"), Pair("E", "")));
}

TEST(ShellVars, CommentsAndBlanksAroundAssignmentsAreIgnored) {
  EXPECT_THAT(parseShellVars("# A=1\n  B=2   # two\n\t\nC=x#y\r\n"),
              ElementsAre(Pair("B", "2"), Pair("C", "x#y")));
}

TEST(ShellVars, QuotedAndPlainPiecesJoin) {
  EXPECT_EQ(parseShellVars("A=a\"b c\"'d e'f\\ g").at("A"), "ab cd ef g");
}

TEST(ShellVars, BackslashInDoubleQuotesEscapesOnlyWhatAShellEscapes) {
  EXPECT_EQ(parseShellVars(R"(A="\$x \" \\ \` \n")").at("A"), R"($x " \ ` \n)");
}

TEST(ShellVars, ValueGoesOnOverLinesInQuotesAndAfterABackslash) {
  EXPECT_THAT(parseShellVars("A=\"one\ntwo\"\nB=th\\\nree\n"),
              ElementsAre(Pair("A", "one\ntwo"), Pair("B", "three")));
}

TEST(ShellVars, ReferencesTakeEarlierAndKnownValues) {
  const ShellVars vars = parseShellVars("P=/var/$VEID\nQ=\"${P}x\"\nR=$ \n", {{"VEID", "101"}});
  EXPECT_EQ(vars.at("P"), "/var/101");
  EXPECT_EQ(vars.at("Q"), "/var/101x");
  EXPECT_EQ(vars.at("R"), "$");
}

TEST(ShellVars, LaterAssignmentWins) { EXPECT_EQ(parseShellVars("A=1\nA=2\n").at("A"), "2"); }

TEST(ShellVars, UnsetReferenceIsRefusedWithItsLine) {
  EXPECT_EQ(refusal("A=1\nVE_ROOT=/var/$VIED\n"), "line 2: variable VIED is not set");
}

TEST(ShellVars, WhatAShellWouldRunIsRefused) {
  for (const char* text :
       {"A=$(reboot)", "A=`reboot`", "A=\"`reboot`\"", "A=\"$(reboot)\"", "A=1; reboot",
        "A=1 reboot", "reboot", "A=(1 2)", "A=a|b", "A=a&", "A=<(x)", "A+=1", "A =1", "1A=1",
        "A=${B:-c}", "A=$1", "A=~root", "A=$'x'", "unset A"}) {
    EXPECT_THAT(refusal(text), HasSubstr("line 1: ")) << text;
  }
}

// It would be another value there.
TEST(ShellVars, WhatAShellWouldExpandIsRefused) {
  for (const char* text : {"A=~", "A=/bin:~/bin", "A=\\\n~/x", "export A=x:~"}) {
    EXPECT_THAT(refusal(text), HasSubstr("'~' is not expanded here")) << text;
  }
  EXPECT_EQ(refusal("AB=\nA=1\nC=$A\\\nB\n"),
            "line 3: a name does not go on in the next line: write ${A}");
  EXPECT_THAT(refusal("A=1\nC=\"$A\\\nB\"\n"), HasSubstr("does not go on"));
  EXPECT_EQ(parseShellVars("A=a~b\nB=\"x:~\"\nC=\\~\n").at("B"), "x:~");
}

TEST(ShellVars, UnclosedQuoteIsReportedWhereItOpens) {
  EXPECT_EQ(refusal("A=1\nB=\"x\nC=2\n"), "line 2: the closing \" is missing");
  EXPECT_EQ(refusal("A='x\nC=2\n"), "line 1: the closing ' is missing");
  EXPECT_THAT(refusal("A=x\\"), HasSubstr("backslash"));
}

TEST(ShellVars, NullByteIsRefused) {
  EXPECT_THAT(refusal(std::string("A=x\0y", 5)), HasSubstr("null byte"));
  EXPECT_THAT(refusal(std::string("A=\"x\0y\"", 7)), HasSubstr("null byte"));
  EXPECT_THAT(refusal(std::string("A='x\0y'", 7)), HasSubstr("null byte"));
}

TEST(ShellVars, QuotedTextReadsBackUnchanged) {
  const std::string value = "it's \"$HOME\" `x` \\ and\nmore";
  EXPECT_EQ(parseShellVars("A=" + host::shellQuoted(value)).at("A"), value);
}

TEST(ShellVars, WhatIsNoAssignmentIsNamedAsItCanBeShown) {
  EXPECT_EQ(refusal("A=1\nLOCKDIR /locks\n"),
            "line 2: NAME=value expected instead of 'LOCKDIR /locks'");
  EXPECT_EQ(refusal("\x1b[2J"), "line 1: NAME=value expected instead of '\\x1b[2J'");
  EXPECT_THAT(refusal(std::string(1000, '-')), testing::EndsWith("--...'"));
}

TEST(ShellVars, OwnAssignmentsAreThoseOfTheTextAlone) {
  EXPECT_THAT(host::parseOwnShellVars("P=$BASE/x\n", {{"BASE", "/srv"}, {"C", "3"}}),
              ElementsAre(Pair("P", "/srv/x")));
}

TEST(ShellVars, WhatIsWrittenIsReadBack) {
  const ShellVars vars = {{"A", "plain"},
                          {"B", "two words"},
                          {"C", "quote\" back\\slash `tick' it's"},
                          {"D", "/r/$VEID"},
                          {"E", "it costs $5, \\$HOME"},
                          {"F", ""},
                          {"G", "line\nline"},
                          {"H", "\xff\xfe"},
                          {"I", "$VEIDx"},
                          {"K", "literal ${VEID}"},
                          {"J", "\\$VEID"}};
  EXPECT_EQ(host::parseOwnShellVars(host::formatShellVars(vars), host::idAsWritten()), vars);
}

TEST(ShellVars, ReferencesToTheIdStayReferences) {
  const std::string text = "A=\"/r/$VEID\"\nB=\"${VEID}x\"\nC=\"\\$HOME\"\n";
  EXPECT_EQ(host::formatShellVars(host::parseOwnShellVars(text, host::idAsWritten())), text);
  EXPECT_EQ(host::formatShellVars({{"A", "$VEIDx"}}), "A=\"${VEID}x\"\n");
}

TEST(ShellVars, AShellReadsTheSame) {
  const ShellVars vars = {{"A", "two words \"quoted\" back\\slash `tick` 'x'"},
                          {"E", "literal $HOME"}};
  const std::string script = host::formatShellVars(vars) + "printf '%s|%s' \"$A\" \"$E\"";
  FILE* shell = popen(("sh <<'END'\n" + script + "\nEND").c_str(), "r");
  char buffer[256];
  const size_t count = fread(buffer, 1, sizeof buffer, shell);
  pclose(shell);
  EXPECT_EQ(std::string(buffer, count),
            "two words \"quoted\" back\\slash `tick` 'x'|literal $HOME");
}

TEST(ShellVars, MissingFileIsNothingAndErrorsNameTheFile) {
  test_support::TempTree tree({test_support::fileAt("bad.conf", "A=(\n")});
  EXPECT_FALSE(host::readShellVars(tree.path("none.conf")));
  try {
    host::readShellVars(tree.path("bad.conf"));
    FAIL() << "a malformed file was accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.what(), tree.path("bad.conf") + ": line 1: '(' must be quoted");
  }
  EXPECT_THROW(host::readShellVars(tree.root()), Error);
}

TEST(ShellVars, ValueOfFallsBackForUnsetAndEmpty) {
  const ShellVars vars{{"A", "x"}, {"B", ""}};
  EXPECT_EQ(host::valueOf(vars, "A", "d"), "x");
  EXPECT_EQ(host::valueOf(vars, "B", "d"), "d");
  EXPECT_EQ(host::valueOf(vars, "C", "d"), "d");
}

}  // namespace
