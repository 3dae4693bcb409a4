#include "expand/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>

using namespace Expand;
using testing::ElementsAre;

namespace {

std::string stripped(std::string s) {
  strip(s);
  return s;
}

std::string collapsed(std::string s) {
  collapse(s);
  return s;
}

std::string replaced(std::string s, const char* from, const char* to) {
  replace(s, from, to);
  return s;
}

}  // namespace

TEST(Strip, WhiteSpaceGoesFromBothEnds) {
  EXPECT_EQ(stripped(" \t\r\n a b\tc \t\r\n"), "a b\tc");
  EXPECT_EQ(stripped("abc"), "abc");
  EXPECT_EQ(stripped("x "), "x");
  EXPECT_EQ(stripped(" x"), "x");
}

TEST(Strip, AllBlankBecomesEmpty) {
  EXPECT_EQ(stripped(" \t\r\n"), "");
  EXPECT_EQ(stripped(""), "");
}

TEST(Strip, OtherControlCharactersStay) { EXPECT_EQ(stripped("\va\f"), "\va\f"); }

TEST(Collapse, InnerRunBecomesOneBlank) {
  EXPECT_EQ(collapsed("a \t\r\n b\n\nc d\te"), "a b c d e");
}

TEST(Collapse, WhiteSpaceAtTheEndsIsRemoved) {
  EXPECT_EQ(collapsed("\n 42 \n"), "42");
  EXPECT_EQ(collapsed(" \t\r\n"), "");
  EXPECT_EQ(collapsed(""), "");
  EXPECT_EQ(collapsed("abc"), "abc");
}

TEST(Split, AnyCharacterOfTheSetSeparates) {
  EXPECT_THAT(split(" ,:", "a b,c:d", 0), ElementsAre("a", "b", "c", "d"));
}

TEST(Split, EmptyPiecesStay) {
  EXPECT_THAT(split("\n", "a\n\nb", 0), ElementsAre("a", "", "b"));
  EXPECT_THAT(split(":", ":a:", 0), ElementsAre("", "a", ""));
  EXPECT_THAT(split(":", ":", 0), ElementsAre("", ""));
}

TEST(Split, EmptyTextIsOneEmptyPiece) {
  EXPECT_THAT(split(":", "", 0), ElementsAre(""));
  EXPECT_THAT(split(":", "", 3), ElementsAre(""));
}

TEST(Split, LimitLeavesTheRestUncut) {
  EXPECT_THAT(split("=", "NAME=a=b", 2), ElementsAre("NAME", "a=b"));
  EXPECT_THAT(split("=", "NAME=a=b", 1), ElementsAre("NAME=a=b"));
  EXPECT_THAT(split("=", "NAME=a=b", 3), ElementsAre("NAME", "a", "b"));
  EXPECT_THAT(split("=", "NAME=a=b", 9), ElementsAre("NAME", "a", "b"));
  EXPECT_THAT(split("=", "NAME=", 2), ElementsAre("NAME", ""));
  EXPECT_THAT(split("=", "NAME", 2), ElementsAre("NAME"));
}

TEST(Split, LimitOfZeroOrLessIsNone) {
  EXPECT_THAT(split("=", "a=b=c", 0), ElementsAre("a", "b", "c"));
  EXPECT_THAT(split("=", "a=b=c", -1), ElementsAre("a", "b", "c"));
}

TEST(Split, WithoutSeparatorsTheTextIsOnePiece) {
  EXPECT_THAT(split("", "a b", 0), ElementsAre("a b"));
}

TEST(JoinArgv, WordsAreJoinedWithSingleBlanks) {
  const char* const argv[] = {"rsync", "--delete", "", "a b", nullptr};
  EXPECT_EQ(join_argv(argv), "rsync --delete  a b");
  const char* const one[] = {"true", nullptr};
  EXPECT_EQ(join_argv(one), "true");
  const char* const none[] = {nullptr};
  EXPECT_EQ(join_argv(none), "");
}

TEST(Join, ElementsOfVectorsAndListsAreJoined) {
  const std::vector<std::string> vector = {"a", "", "c"};
  EXPECT_EQ(join(", ", vector.begin(), vector.end()), "a, , c");
  const std::list<std::string> list = {"x", "y"};
  EXPECT_EQ(join("", list.begin(), list.end()), "xy");
  EXPECT_EQ(join("-", list.begin(), list.begin()), "");
}

TEST(Replace, EveryOccurrenceIsReplaced) {
  EXPECT_EQ(replaced("a-b-c", "-", "+"), "a+b+c");
  EXPECT_EQ(replaced("aaa", "a", "bb"), "bbbbbb");
  EXPECT_EQ(replaced("abcabc", "abc", ""), "");
  EXPECT_EQ(replaced("abc", "x", "y"), "abc");
}

TEST(Replace, WhatWasPutInIsNotSearchedAgain) {
  EXPECT_EQ(replaced("'", "'", "'\\''"), "'\\''");
  EXPECT_EQ(replaced("aa", "a", "aa"), "aaaa");
}

TEST(Replace, EmptyTextIsNotLookedFor) { EXPECT_EQ(replaced("abc", "", "x"), "abc"); }

TEST(IcaseStrstr, CaseDoesNotMatter) {
  EXPECT_EQ(icase_strstr("The Red HAT", "red hat"), 4u);
  EXPECT_EQ(icase_strstr("the red hat", "RED"), 4u);
  EXPECT_EQ(icase_strstr("aAa", "A"), 0u);
}

TEST(IcaseStrstr, NothingFoundIsNpos) {
  EXPECT_EQ(icase_strstr("abc", "abcd"), std::string::npos);
  EXPECT_EQ(icase_strstr("", "a"), std::string::npos);
  // Only letters have a case.
  EXPECT_EQ(icase_strstr("[", "{"), std::string::npos);
}

TEST(IcaseStrstr, EmptyNeedleIsAtTheStart) {
  EXPECT_EQ(icase_strstr("abc", ""), 0u);
  EXPECT_EQ(icase_strstr("", ""), 0u);
}

TEST(Btoa, NamesTheTwoValues) {
  EXPECT_STREQ(btoa(true), "true");
  EXPECT_STREQ(btoa(false), "false");
}

TEST(IsShellWord, BlanksAndWhatAShellActsOnAreNone) {
  for (const char* text : {"/", "/data", "/var/log/*", "/a?[b-c]~",
                           "/gr\xc3\xb6\xc3\x9f"
                           "e",
                           "a,b=c:d@e%f+g"}) {
    EXPECT_TRUE(is_shell_word(text)) << text;
  }
  for (const char* text :
       {"", "/a b", "/a\tb", "/a\nb", "/a;b", "/a&b", "/a|b", "/a<b", "/a>b", "/$(b)", "/$b",
        "/`b`", "/a\\040b", "/'", "/\"", "/{a,b}", "/a(b", "/!", "#"}) {
    EXPECT_FALSE(is_shell_word(text)) << text;
  }
  EXPECT_FALSE(is_shell_word(std::string("a\0b", 3)));
}

TEST(Atob, OnlyTrueInAnyCaseIsTrue) {
  EXPECT_TRUE(atob("true"));
  EXPECT_TRUE(atob("TRUE"));
  EXPECT_TRUE(atob("tRuE"));
  for (const char* text : {"yes", "1", "", "truely", " true", "tru", "false"}) {
    EXPECT_FALSE(atob(text)) << text;
  }
}
