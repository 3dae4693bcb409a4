#include "support/child_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "support/failing_call.h"

using namespace test_support;
using testing::HasSubstr;

namespace {

std::vector<ChildResult> resultsOf(const std::function<void()>& body) {
  return collectChildTest({.enter = {}, .body = body, .expectAbort = false, .abortText = ""});
}

std::string onlyText(const std::vector<ChildResult>& results) {
  return results.size() == 1 ? results[0].text : std::to_string(results.size()) + " results";
}

}  // namespace

TEST(RunInChild, BodyRunsInAnotherProcess) {
  const pid_t parent = getpid();
  runInChild([&] {
    EXPECT_NE(getpid(), parent);
    EXPECT_EQ(getppid(), parent);
  });
}

TEST(RunInChild, FailureInTheChildIsReportedWithItsPlace) {
  const std::vector<ChildResult> results = resultsOf([] { EXPECT_EQ(1, 2) << "the reason"; });
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].kind, ChildResult::FAILURE);
  EXPECT_THAT(results[0].text, HasSubstr("the reason"));
  EXPECT_THAT(results[0].file, HasSubstr("child_test_test.cc"));
  EXPECT_GT(results[0].line, 0);
}

TEST(RunInChild, FatalFailureInTheChildEndsTheBody) {
  const std::vector<ChildResult> results = resultsOf([] {
    ASSERT_EQ(1, 2) << "the reason";
    EXPECT_TRUE(false) << "not reached";
  });
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].kind, ChildResult::FATAL_FAILURE);
  EXPECT_THAT(results[0].text, HasSubstr("the reason"));
}

TEST(RunInChild, SkipInTheChildIsReported) {
  const std::vector<ChildResult> results = resultsOf([] { GTEST_SKIP() << "not here"; });
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].kind, ChildResult::SKIP);
}

TEST(RunInChild, UnavailableEnvironmentIsReported) {
  const std::vector<ChildResult> results = resultsOf([] { throw Unavailable{"no such thing"}; });
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].kind, ChildResult::UNAVAILABLE);
  EXPECT_EQ(results[0].text, "no such thing");
}

TEST(RunInChild, EndOfTheProcessBeforeTheEndOfTheBodyIsAFailure) {
  EXPECT_THAT(onlyText(resultsOf([] { _exit(0); })),
              "the child ended with status 0 before the end of the body");
}

TEST(RunInChild, CrashInTheChildIsAFailure) {
  EXPECT_THAT(onlyText(resultsOf([] {
                signal(SIGUSR1, SIG_DFL);
                raise(SIGUSR1);
              })),
              HasSubstr("killed by signal"));
}

TEST(RunInChild, ExceptionInTheChildIsAFailure) {
  EXPECT_THAT(onlyText(resultsOf([] { throw std::runtime_error("thrown text"); })),
              HasSubstr("thrown text"));
}

TEST(RunInChild, SuccessInTheChildReportsNothing) {
  EXPECT_TRUE(resultsOf([] { EXPECT_EQ(1, 1); }).empty());
}

TEST(RunInChild, ExpectedAbortPasses) {
  runInChildExpectingAbort([] { assert(1 + 1 == 3); }, "1 + 1 == 3");
}

TEST(RunInChild, MissingAbortIsAFailure) {
  EXPECT_THAT(onlyText(collectChildTest(
                  {.enter = {}, .body = [] {}, .expectAbort = true, .abortText = "text"})),
              HasSubstr("expected an abort"));
}

TEST(RunInChild, AbortWithAnotherTextIsAFailure) {
  EXPECT_THAT(onlyText(collectChildTest({.enter = {},
                                         .body = [] { std::abort(); },
                                         .expectAbort = true,
                                         .abortText = "some text"})),
              HasSubstr("some text"));
}

TEST(FailSystemCall, OnlyThatCallFails) {
  runInChild([] {
    failSystemCall(SYS_getsid, ENOMEM);
    EXPECT_EQ(syscall(SYS_getsid, 0), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_GT(syscall(SYS_getpid), 0);
  });
}

TEST(FailSystemCall, OnlyThatArgumentFails) {
  runInChild([] {
    failSystemCall(SYS_dup, EMFILE, CallArgument{0, 1});
    EXPECT_EQ(syscall(SYS_dup, 1), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_GE(syscall(SYS_dup, 2), 0);
  });
}
