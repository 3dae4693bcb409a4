#include "agent/programs/paint.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

using agent::choosePainting;
using agent::painted;
using agent::Painting;
using agent::Tone;

constexpr char kGreen[] = "\033[32mdone\033[0m";

// A terminal of its own: its controlling end, and what a program has of it.
class Paint : public testing::Test {
 protected:
  Paint() : controller_(posix_openpt(O_RDWR | O_NOCTTY)) {
    grantpt(controller_);
    unlockpt(controller_);
    terminal_ = open(ptsname(controller_), O_RDWR | O_NOCTTY);
    unsetenv("NO_COLOR");
    setenv("TERM", "xterm", 1);
  }
  ~Paint() override {
    choosePainting(Painting::kAuto);
    close(terminal_);
    close(controller_);
  }

  std::string shown() const { return painted("done", Tone::kGood, terminal_); }

  int controller_, terminal_ = -1;
};

TEST_F(Paint, IsForTerminals) {
  ASSERT_TRUE(isatty(terminal_));
  EXPECT_EQ(shown(), kGreen);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(painted("done", Tone::kGood, ends[1]), "done");
  choosePainting(Painting::kAlways);
  EXPECT_EQ(painted("done", Tone::kGood, ends[1]), kGreen);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Paint, IsNotForWhoDoesNotWantIt) {
  setenv("NO_COLOR", "1", 1);
  EXPECT_EQ(shown(), "done");
  choosePainting(Painting::kAlways);
  EXPECT_EQ(shown(), kGreen);
  choosePainting(Painting::kAuto);
  setenv("NO_COLOR", "", 1);
  EXPECT_EQ(shown(), kGreen);
  setenv("TERM", "dumb", 1);
  EXPECT_EQ(shown(), "done");
  setenv("TERM", "xterm", 1);
  choosePainting(Painting::kNever);
  EXPECT_EQ(shown(), "done");
}

}  // namespace
