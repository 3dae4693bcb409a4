#include "host/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"

namespace {

using testing::EndsWith;

std::string failureOf(const std::vector<std::string>& arguments) {
  try {
    host::runProgram(arguments);
  } catch (const host::Error& error) {
    EXPECT_EQ(error.code(), host::ExitCode::kFailed);
    return error.what();
  }
  return "no failure";
}

TEST(RunProgram, SuccessIsSilent) { EXPECT_EQ(failureOf({"true"}), "no failure"); }

TEST(RunProgram, FailureTellsCommandStatusAndErrorOutput) {
  EXPECT_EQ(failureOf({"sh", "-c", "echo no >&2; exit 3"}),
            "'sh -c echo no >&2; exit 3' exited with status 3:\nno");
  EXPECT_EQ(failureOf({"sh", "-c", "kill -9 $$"}), "'sh -c kill -9 $$' was ended by signal 9");
}

TEST(RunProgram, ProgramThatDoesNotExistIsAFailure) {
  EXPECT_EQ(failureOf({"/no/such/program", "x"}),
            "cannot run '/no/such/program x': No such file or directory");
}

TEST(RunProgram, OutputIsReturnedWhenItIsAskedFor) {
  EXPECT_EQ(host::outputOf({"sh", "-c", "echo one; echo two >&2"}), "one\ntwo");
  EXPECT_THROW(host::outputOf({"false"}), host::Error);
}

TEST(RunProgram, OnlyTheEndOfMuchErrorOutputIsKept) {
  const std::string text = failureOf(
      {"sh", "-c", "i=0; while [ $i -lt 3000 ]; do echo line $i >&2; i=$((i+1)); done; exit 1"});
  EXPECT_THAT(text, EndsWith("line 2999"));
  EXPECT_LT(text.size(), 5000u);
}

TEST(RunProgram, StandardInputIsEmptyAndOutputDiscarded) {
  EXPECT_EQ(failureOf({"sh", "-c", "echo shown; read x && exit 1; exit 0"}), "no failure");
}

}  // namespace
