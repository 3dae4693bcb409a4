// The tables of the configuration parser, entry by entry, and what follows from
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "expand/conf_parser.h"

using namespace Expand;
using testing::ElementsAre;

namespace {

struct Tables : ConfParser {
  using ConfParser::dfa_;
  using ConfParser::getCharClass;
};

// Notes the errors and goes on.
struct Notes : ConfParserErrHandler {
  void operator()(const Error& error) override {
    const std::string prefix = "[Config reader] Error parsing config file. ";
    std::string text = error.what();
    EXPECT_EQ(text.compare(0, prefix.size(), prefix), 0) << text;
    errors.push_back(text.substr(prefix.size()));
  }
  std::vector<std::string> errors;
};

struct Parsed {
  Config config;
  std::vector<std::string> errors;

  // "value" or "(undefined)".
  std::string get(const std::string& section, const std::string& option) {
    std::string text;
    config[section][option].value(text);
    return config[section][option].defined() ? text : "(undefined)";
  }
};

Parsed parse(const std::string& text) {
  Parsed parsed;
  Notes notes;
  ConfParser parser(&notes);
  parser.init(ConfParser::FROM_STRING, text);
  parser.parse(parsed.config);
  parsed.errors = notes.errors;
  return parsed;
}

// Text of the error that the default handler throws.
std::string thrownBy(const std::string& text) {
  ConfParser parser;
  parser.init(ConfParser::FROM_STRING, text);
  Config config;
  try {
    parser.parse(config);
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), Error::CONFIG_PARSE);
    return error.what();
  }
  return "no error";
}

const std::string PREFIX = "[Config reader] Error parsing config file. ";

}  // namespace

TEST(CharClass, EveryCharacterHasItsClass) {
  for (int value = 0; value < 256; ++value) {
    const char c = static_cast<char>(value);
    int expected = 7;
    if (c == '\n' || c == '\r') expected = 0;
    if (c == '#') expected = 1;
    if (c == '[') expected = 2;
    if (c == ']') expected = 3;
    if (c == ' ' || c == '\t') expected = 4;
    if (c == '=' || c == ':') expected = 5;
    if (std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-").find(c) !=
        std::string::npos) {
      expected = 6;
    }
    EXPECT_EQ(Tables::getCharClass(c), expected) << value;
  }
}

TEST(Automaton, TableHasEveryTransition) {
  static const int expected[9][8][2] = {
      {{7, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}},
      {{7, 4}, {8, 4}, {8, 4}, {8, 4}, {1, 0}, {8, 4}, {2, 5}, {8, 4}},
      {{7, 1}, {8, 1}, {8, 1}, {7, 6}, {3, 6}, {8, 1}, {2, 5}, {8, 1}},
      {{7, 1}, {8, 1}, {8, 1}, {7, 0}, {3, 0}, {8, 1}, {8, 1}, {8, 1}},
      {{7, 2}, {8, 2}, {8, 2}, {8, 2}, {5, 8}, {6, 8}, {4, 7}, {8, 2}},
      {{7, 2}, {8, 2}, {8, 2}, {8, 2}, {5, 0}, {6, 0}, {8, 2}, {8, 2}},
      {{7, 10}, {6, 9}, {6, 9}, {6, 9}, {6, 9}, {6, 9}, {6, 9}, {6, 9}},
      {{7, 0}, {0, 0}, {1, 0}, {8, 3}, {7, 0}, {8, 3}, {4, 7}, {8, 3}},
      {{7, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}},
  };
  for (int state = 0; state < 9; ++state) {
    for (int charClass = 0; charClass < 8; ++charClass) {
      EXPECT_EQ(Tables::dfa_[state][charClass].next, expected[state][charClass][0])
          << state << " " << charClass;
      EXPECT_EQ(Tables::dfa_[state][charClass].action, expected[state][charClass][1])
          << state << " " << charClass;
    }
  }
}

// The same table seen from outside: a text that leads to each state, each class of
// characters behind it, and the error that this gives, with its column.
TEST(Automaton, EveryStateReportsTheErrorsOfItsRow) {
  const char classes[] = {'\n', '#', '[', ']', ' ', '=', 'w', '!'};
  struct Row {
    const char* lead;
    const char* error;
    bool fails[8];
  };
  const Row rows[] = {
      {"#x", "", {}},
      {"[", "section name expected", {true, true, true, true, false, true, false, true}},
      {"[n", "']' expected", {true, true, true, false, false, true, false, true}},
      {"[n ", "']' expected", {true, true, true, false, false, true, true, true}},
      {"o", "'=' or ':' expected", {true, true, true, true, false, false, false, true}},
      {"o ", "'=' or ':' expected", {true, true, true, true, false, false, true, true}},
      {"o=v", "", {}},
      {"", "unexpected symbol", {false, false, false, true, false, true, false, true}},
  };
  for (const Row& row : rows) {
    for (int i = 0; i < 8; ++i) {
      const std::string lead = row.lead;
      const std::vector<std::string> errors = parse(lead + classes[i]).errors;
      const std::string expected =
          "line 1, col " + std::to_string(lead.size() + 1) + ": " + row.error;
      if (row.fails[i]) {
        ASSERT_FALSE(errors.empty()) << lead << classes[i];
        EXPECT_EQ(errors[0], expected) << lead << classes[i];
      } else if (!errors.empty()) {
        // The end of the text, one further, may be one.
        EXPECT_NE(errors[0], expected) << lead << classes[i];
      }
    }
  }
}

TEST(Automaton, ErrorMessagesHaveTheirIndex) {
  EXPECT_STREQ(ConfParser::err_msgs[0], "']' expected");
  EXPECT_STREQ(ConfParser::err_msgs[1], "'=' or ':' expected");
  EXPECT_STREQ(ConfParser::err_msgs[2], "input string is too long (token buffer is full)");
  EXPECT_STREQ(ConfParser::err_msgs[3], "unexpected symbol");
  EXPECT_STREQ(ConfParser::err_msgs[4], "section name expected");
}

TEST(Automaton, OptionsBeforeTheFirstHeaderAreGlobal) {
  Parsed parsed = parse("a=1\nb: 2\n[main]\na=3\n");
  EXPECT_EQ(parsed.get("GLOBAL", "a"), "1");
  EXPECT_EQ(parsed.get("GLOBAL", "b"), "2");
  EXPECT_EQ(parsed.get("main", "a"), "3");
}

TEST(Automaton, EmptyTextHasTheGlobalSection) {
  const Parsed parsed = parse("");
  ASSERT_EQ(parsed.config.sections().size(), 1u);
  EXPECT_EQ(parsed.config.sections().front().first, "GLOBAL");
  EXPECT_TRUE(parsed.errors.empty());
}

TEST(Automaton, CommentsAndBlankLinesAreSkipped) {
  Parsed parsed = parse("# one\n\n  \t# two [x] = y\n \t\n a=1\n#last");
  EXPECT_EQ(parsed.get("GLOBAL", "a"), "1");
  EXPECT_EQ(parsed.config.sections().size(), 1u);
  EXPECT_EQ(parsed.config.sections().front().second.options().size(), 1u);
  EXPECT_TRUE(parsed.errors.empty());
}

TEST(Automaton, HashInAValueIsPartOfIt) {
  EXPECT_EQ(parse("a=b # c\n").get("GLOBAL", "a"), "b # c");
}

TEST(Automaton, ValueIsTheRestOfTheLine) {
  EXPECT_EQ(parse("a=[b] = c: \"d\"\t!e\n").get("GLOBAL", "a"), "[b] = c: \"d\"\t!e");
  EXPECT_EQ(parse("a==b\n").get("GLOBAL", "a"), "=b");
  EXPECT_EQ(parse("a=\xc3\xa4\x01\n").get("GLOBAL", "a"), "\xc3\xa4\x01");
}

TEST(Automaton, ValueIsStoredWithoutTheBlanksAroundIt) {
  EXPECT_EQ(parse("a = \t b  c \t\n").get("GLOBAL", "a"), "b  c");
}

TEST(Automaton, EmptyValueIsDefined) {
  EXPECT_EQ(parse("a=\n").get("GLOBAL", "a"), "");
  EXPECT_EQ(parse("a = \n").get("GLOBAL", "a"), "");
}

TEST(Automaton, OptionNameEndsAtABlankOrAssignment) {
  Parsed parsed = parse("A_b.c-9 \t =1\nx:2\n");
  EXPECT_EQ(parsed.get("GLOBAL", "A_b.c-9"), "1");
  EXPECT_EQ(parsed.get("GLOBAL", "x"), "2");
}

TEST(Automaton, TextAfterTheHeaderIsANewLine) {
  Parsed parsed = parse("[main] a=1\n[x][y] # comment\nb=2\n");
  EXPECT_EQ(parsed.get("main", "a"), "1");
  EXPECT_EQ(parsed.get("y", "b"), "2");
  EXPECT_TRUE(parsed.errors.empty());
}

TEST(Automaton, BlanksMaySurroundASectionName) {
  EXPECT_EQ(parse("[ \tmain \t]\na=1\n").get("main", "a"), "1");
}

TEST(Automaton, CarriageReturnEndsALine) {
  Parsed parsed = parse("a=1\r\nb=2\rc=3\r\n");
  EXPECT_EQ(parsed.get("GLOBAL", "a"), "1");
  EXPECT_EQ(parsed.get("GLOBAL", "b"), "2");
  EXPECT_EQ(parsed.get("GLOBAL", "c"), "3");
  EXPECT_TRUE(parsed.errors.empty());
}

TEST(Automaton, LastLineNeedsNoLineEnd) {
  EXPECT_EQ(parse("a=1").get("GLOBAL", "a"), "1");
  EXPECT_EQ(parse("a=").get("GLOBAL", "a"), "");
  EXPECT_THAT(parse("a").errors, ElementsAre("line 1, col 2: '=' or ':' expected"));
  EXPECT_THAT(parse("[main").errors, ElementsAre("line 1, col 6: ']' expected"));
  EXPECT_THAT(parse("[").errors, ElementsAre("line 1, col 2: section name expected"));
  EXPECT_TRUE(parse("[main]").errors.empty());
}

TEST(Automaton, SectionThatComesAgainIsContinued) {
  Parsed parsed = parse("[a]\nx=1\n[b]\n[a]\ny=2\n");
  EXPECT_EQ(parsed.get("a", "x"), "1");
  EXPECT_EQ(parsed.get("a", "y"), "2");
  EXPECT_EQ(parsed.config.sections().size(), 3u);
}

TEST(Automaton, LaterValueReplacesAnEarlierOne) {
  EXPECT_EQ(parse("a=1\na=2\n").get("GLOBAL", "a"), "2");
}

TEST(Automaton, MissingAssignmentIsReportedAtTheNextWord) {
  EXPECT_EQ(thrownBy("key value"), PREFIX + "line 1, col 5: '=' or ':' expected");
}

TEST(Automaton, EmptyHeaderIsReported) {
  EXPECT_EQ(thrownBy("[]"), PREFIX + "line 1, col 2: section name expected");
}

TEST(Automaton, BlankInASectionNameIsReported) {
  EXPECT_EQ(thrownBy("[a b]"), PREFIX + "line 1, col 4: ']' expected");
}

TEST(Automaton, StrayCharacterIsReported) {
  EXPECT_EQ(thrownBy("\n\n  ]"), PREFIX + "line 3, col 3: unexpected symbol");
  EXPECT_EQ(thrownBy("=x"), PREFIX + "line 1, col 1: unexpected symbol");
  EXPECT_EQ(thrownBy("!"), PREFIX + "line 1, col 1: unexpected symbol");
}

TEST(Automaton, ErrorAtALineEndIsReportedThere) {
  EXPECT_EQ(thrownBy("a=1\nkey\nb=2\n"), PREFIX + "line 2, col 4: '=' or ':' expected");
}

TEST(Automaton, NameOf4096CharactersIsTooLong) {
  const std::string message = "input string is too long (token buffer is full)";
  EXPECT_EQ(thrownBy(std::string(4096, 'n') + "=1"), PREFIX + "line 1, col 4096: " + message);
  EXPECT_EQ(thrownBy("[" + std::string(4096, 'n') + "]"), PREFIX + "line 1, col 4097: " + message);
  EXPECT_EQ(thrownBy("a=" + std::string(4096, 'v')), PREFIX + "line 1, col 4098: " + message);
}

TEST(Automaton, NameOf4095CharactersFits) {
  const std::string name(4095, 'n');
  Parsed parsed = parse("[" + name + "]\n" + name + "=" + std::string(4095, 'v') + "\n");
  EXPECT_TRUE(parsed.errors.empty());
  EXPECT_EQ(parsed.get(name, name), std::string(4095, 'v'));
}

TEST(Automaton, LineWithATooLongTokenIsSkippedAsAWhole) {
  Parsed parsed = parse("a=" + std::string(9000, 'v') + "\nb=1\n");
  EXPECT_EQ(parsed.errors.size(), 1u);
  EXPECT_EQ(parsed.get("GLOBAL", "a"), "(undefined)");
  EXPECT_EQ(parsed.get("GLOBAL", "b"), "1");
}

TEST(Automaton, LinesAfterAnErrorAreParsed) {
  Parsed parsed = parse("one two three ] [ =\n[x y] z=1\na=1\nkey\nb=2\n] c=3\nd=4\n");
  EXPECT_THAT(
      parsed.errors,
      ElementsAre("line 1, col 5: '=' or ':' expected", "line 2, col 4: ']' expected",
                  "line 4, col 4: '=' or ':' expected", "line 6, col 1: unexpected symbol"));
  // The name of the section was complete before the error.
  EXPECT_EQ(parsed.get("x", "a"), "1");
  EXPECT_EQ(parsed.get("x", "b"), "2");
  EXPECT_EQ(parsed.get("x", "c"), "(undefined)");
  EXPECT_EQ(parsed.get("x", "d"), "4");
  EXPECT_EQ(parsed.get("x", "z"), "(undefined)");
}

TEST(Automaton, NameThatWasGivenUpDoesNotStickToTheNext) {
  Parsed parsed = parse("bad!\ngood=1\n[se!\n[sect]\nx=1\n");
  EXPECT_EQ(parsed.get("GLOBAL", "good"), "1");
  EXPECT_EQ(parsed.get("sect", "x"), "1");
}
