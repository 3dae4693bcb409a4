// The order in which one pass of the runner serves its connectors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "expand/caller.h"

using namespace Expand;
using testing::ElementsAre;

namespace {

// Notes each step, and answers the first one as it is told, later ones as a read
// would.
struct Noting : Connector {
  Noting(std::vector<std::string>& allSteps, std::string ownName, int firstAnswer)
      : steps(allSteps), name(std::move(ownName)), first(firstAnswer) {}

  int process() override {
    steps.push_back(name);
    if (++count == 1) return first;
    char buffer[100];
    return static_cast<int>(read(fd(), buffer, sizeof buffer));
  }

  std::vector<std::string>& steps;
  std::string name;
  int first;
  int count = 0;
};

// Begins to serve when all three descriptors have long been ready.
struct Late : CallerExec {
  using CallerExec::CallerExec;
  void prepareMainLoop_() override {
    pollfd both[2] = {pollfds_[live_ - 2], pollfds_[live_ - 1]};
    for (pollfd& one : both) EXPECT_EQ(poll(&one, 1, 10000), 1);
    // The end of a program that has written everything.
    usleep(200000);
  }
};

// The steps of a run whose connectors first answer this.
std::vector<std::string> stepsOf(int in, int out, int err) {
  std::vector<std::string> steps;
  Noting input(steps, "in", in), output(steps, "out", out), error(steps, "err", err);
  std::vector<Connector*> connectors = {&input, &output, &error};
  Late runner("sh", {"-c", "exec 0<&-; echo out; echo err >&2"}, {"PATH=/usr/bin:/bin"}, {});
  runner.call(connectors);
  return steps;
}

}  // namespace

TEST(CallerExecPass, EveryReadyEntryIsServedInOrder) {
  // All stay open; the output's text and its end are read in the passes after.
  const auto steps = stepsOf(1, 1, 1);
  ASSERT_GE(steps.size(), 3u);
  EXPECT_THAT(std::vector<std::string>(steps.begin(), steps.begin() + 3),
              ElementsAre("in", "out", "err"));
}

TEST(CallerExecPass, EntryMovedDownByARemovalIsServedInTheNextPass) {
  for (const int answer : {0, -EIO}) {
    // Standard input's entry goes, and standard error's moves to its place, behind
    // the index. In the next pass it comes first.
    const auto steps = stepsOf(answer, 1, 1);
    ASSERT_GE(steps.size(), 4u);
    EXPECT_THAT(std::vector<std::string>(steps.begin(), steps.begin() + 4),
                ElementsAre("in", "out", "err", "out"));
  }
}

TEST(CallerExecPass, RemovalOfTheLastEntryMovesNone) {
  const auto steps = stepsOf(0, 1, 0);
  // In the second pass standard error is first and goes; standard output moves to
  // its place and is served alone from then on.
  ASSERT_GE(steps.size(), 4u);
  EXPECT_EQ(steps[0], "in");
  EXPECT_EQ(steps[1], "out");
  EXPECT_EQ(steps[2], "err");
  for (std::size_t i = 3; i < steps.size(); ++i) EXPECT_EQ(steps[i], "out");
}
