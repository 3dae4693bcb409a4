#include "quota/command.h"

#include <gtest/gtest.h>

#include "fixtures/failing_fork.h"
#include "last_error.h"
#include "quota/formatted.h"
#include "support/child_test.h"

using namespace QuotaMgmt;
using namespace test_support;

TEST(Formatted, LongTextIsWhole) {
  const std::string word(10000, 'w');
  EXPECT_EQ(formatted("<%s>", word.c_str()), "<" + word + ">");
  EXPECT_EQ(formatted("%s", ""), "");
}

TEST(QuotaCommand, OutputIsAppended) {
  std::string output = "before ";
  EXPECT_EQ(runChecked("printf after", &output), 0);
  EXPECT_EQ(output, "before after");
}

TEST(QuotaCommand, FailureIsRecordedWithCommandAndErrorOutput) {
  std::string output = "kept";
  EXPECT_EQ(runChecked("echo lost; echo why >&2; exit 3", &output), -1);
  EXPECT_EQ(lastError(), "Error running 'echo lost; echo why >&2; exit 3':\nwhy\n");
  EXPECT_EQ(output, "kept");
}

TEST(QuotaCommand, CommandEndedByASignalIsAFailure) {
  EXPECT_EQ(runChecked("kill -KILL $$", nullptr), -1);
  EXPECT_EQ(lastError(), "Error running 'kill -KILL $$':\n");
}

TEST(QuotaCommand, RunnerThatCannotForkIsRecordedAndNothingIsThrown) {
  runInChild([] {
    fixtures::failForks();
    CommandResult result;
    EXPECT_EQ(runCommand("true", result), -1);
    EXPECT_EQ(lastError(), "[Caller] Generic error. Fork returned: Cannot allocate memory");
  });
}
