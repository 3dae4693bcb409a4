#include "agent/programs/complaint.h"

#include <gtest/gtest.h>

namespace {

using agent::complaintText;

TEST(Complaint, IsOneLineWhereNoTerminalShowsIt) {
  const std::string text(300, 'x');
  EXPECT_EQ(complaintText(text, 0), "qxmigrate: " + text + "\n");
  EXPECT_EQ(complaintText("first\nsecond", 0), "qxmigrate: first\n    second\n");
}

TEST(Complaint, IsBrokenBetweenWordsOnATerminal) {
  EXPECT_EQ(complaintText("the plan is blocked, and nothing was changed; --force migrates all the "
                          "same",
                          80),
            "qxmigrate: the plan is blocked, and nothing was changed; --force migrates all\n"
            "    the same\n");
  EXPECT_EQ(complaintText("first line\nsecond line that is long", 20),
            "qxmigrate: first\n    line\n    second line that\n    is long\n");
}

TEST(Complaint, CannotCommandTheTerminal) {
  EXPECT_EQ(complaintText("a\x1b[2Jb", 0), "qxmigrate: a\\x1b[2Jb\n");
  EXPECT_EQ(complaintText("a\x1b[2Jb", 80), "qxmigrate: a\\x1b[2Jb\n");
}

}  // namespace
