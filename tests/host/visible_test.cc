// What another machine says, on a terminal.

#include "host/visible.h"

#include <gtest/gtest.h>

namespace {

using host::visibleLine;
using host::visibleLines;

TEST(Visible, OrdinaryTextStaysAsItIs) {
  for (const char* text : {"", "plain text, 100 %: a\\b", "gr\xc3\xbc\xc3\x9f",
                           "\xe6\x97\xa5\xe6\x9c\xac", "\xf0\x9f\x98\x80"}) {
    EXPECT_EQ(visibleLine(text), text);
  }
}

TEST(Visible, ControlCharactersOfBothSetsAreShown) {
  EXPECT_EQ(visibleLine("a\x1b[2Jb\x07\x7f"), "a\\x1b[2Jb\\x07\\x7f");
  EXPECT_EQ(visibleLine(std::string("nul\0x", 5)), "nul\\x00x");
  // CSI as one character: in UTF-8, and as the bare byte of older terminals.
  EXPECT_EQ(visibleLine("\xc2\x9b"
                        "2J"),
            "\\x9b2J");
  EXPECT_EQ(visibleLine("\x9b"
                        "2J"),
            "\\x9b2J");
  EXPECT_EQ(visibleLine("a\tb"), "a b");
}

TEST(Visible, WhatTurnsOrHidesTextIsShown) {
  EXPECT_EQ(visibleLine("\xe2\x80\xae"
                        "evil\xe2\x80\xac"),
            "\\u{202e}evil\\u{202c}");
  EXPECT_EQ(visibleLine("\xe2\x81\xa6x\xe2\x81\xa9"), "\\u{2066}x\\u{2069}");
  EXPECT_EQ(visibleLine("a\xe2\x80\x8b"
                        "b\xef\xbb\xbf"
                        "c\xd8\x9c"),
            "a\\u{200b}b\\u{feff}c\\u{61c}");
  EXPECT_EQ(visibleLine("line\xe2\x80\xa8separator"), "line\\u{2028}separator");
  EXPECT_EQ(visibleLine("\xf3\xa0\x81\x81"), "\\u{e0041}");
}

TEST(Visible, BytesThatAreNoTextAreShown) {
  EXPECT_EQ(visibleLine("\xff\xfe"), "\\xff\\xfe");
  // Cut off, overlong, a surrogate, beyond the last character.
  EXPECT_EQ(visibleLine("\xc3"), "\\xc3");
  EXPECT_EQ(visibleLine("\xe6\x97"), "\\xe6\\x97");
  EXPECT_EQ(visibleLine("\xc0\xaf"), "\\xc0\\xaf");
  EXPECT_EQ(visibleLine("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
  EXPECT_EQ(visibleLine("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(visibleLine("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
}

TEST(Visible, ALineStaysOneLineAndEnds) {
  EXPECT_EQ(visibleLine("done\nContainer 101 is ready.\r"), "done\\nContainer 101 is ready.\\r");
  EXPECT_EQ(visibleLine(std::string(2000, 'x')), std::string(1000, 'x') + "...");
  EXPECT_EQ(visibleLine("abc", 3), "abc");
  // Never within a character, nor within what stands for one.
  EXPECT_EQ(visibleLine("ab\xc3\xbc", 3), "ab...");
  EXPECT_EQ(visibleLine("ab\x1b", 4), "ab...");
}

TEST(Visible, LinesAreIndentedSoThatNoneLooksLikeOurs) {
  EXPECT_EQ(visibleLines("failed:\nContainer 101 is ready.\n\n"),
            "failed:\n    Container 101 is ready.");
  EXPECT_EQ(visibleLines("a\r\nb\rc", "> "), "a\n> b\\rc");
  EXPECT_EQ(visibleLines("a\n\nb", ""), "a\n\nb");
  EXPECT_EQ(visibleLines(""), "");
}

TEST(Visible, LinesEnd) {
  EXPECT_EQ(visibleLines("1\n2\n3\n4", " ", 2), "1\n 2\n (more is left out)");
  EXPECT_EQ(visibleLines("1\n2", " ", 2), "1\n 2");
}

}  // namespace
