// What CallerExec says when a run cannot be started or watched.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "expand/error.h"
#include "run_program.h"
#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using namespace Expand;
using namespace test_support;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

// Text of the error of a run, after checking that it left nothing behind.
std::string failureOf(const std::function<void()>& run) {
  struct sigaction before;
  sigaction(SIGPIPE, nullptr, &before);
  std::string text = "no error";
  try {
    run();
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), Error::CALLER_GENERIC);
    text = error.what();
  }
  struct sigaction action;
  sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(action.sa_handler, before.sa_handler);
  sigaction(SIGCHLD, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_DFL);
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGCHLD), 0);
  return text;
}

int firstFreeDescriptor() {
  const int fd = open("/dev/null", O_RDONLY);
  close(fd);
  return fd;
}

// In a child: what the body writes to standard error, which also is what a
// program gets as long as its own standard error is not yet in place.
std::string stderrOf(const std::function<void()>& body) {
  const TempTree tree;
  const std::string path = tree.path("err");
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const int saved = dup(STDERR_FILENO);
  dup2(fd, STDERR_FILENO);
  body();
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(fd);
  return readFile(path);
}

}  // namespace

TEST(CallerExecFailure, PipeThatCannotBeMadeIsNamed) {
  for (const unsigned i : {0u, 1u, 2u}) {
    runInChild([&] {
      failSystemCall(SYS_pipe2, EMFILE, CallArgument{1, O_CLOEXEC});
      EXPECT_EQ(failureOf([&] {
                  CtoDynaBuf connector(100, true, -1);
                  std::vector<Connector*> connectors(3, nullptr);
                  connectors[i] = &connector;
                  CallerExec("true", {}, {"PATH=/bin"}, {}).call(connectors);
                }),
                "[Caller] Generic error. Can't create pipe for callee's " + std::to_string(i) +
                    " fd: Too many open files");
    });
  }
}

TEST(CallerExecFailure, PipeThatCannotBeMovedUpIsNamed) {
  runInChild([] {
    close(STDIN_FILENO);
    failSystemCall(SYS_fcntl, EMFILE, CallArgument{1, F_DUPFD_CLOEXEC});
    EXPECT_EQ(failureOf([] { runShell("true"); }),
              "[Caller] Generic error. Can't create pipe for callee's 0 fd: Too many open files");
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  });
}

TEST(CallerExecFailure, FailingForkIsReportedAndThePipesAreClosed) {
  runInChild([] {
    // As fork calls it; the leak checker has its own kind of process.
    failSystemCall(SYS_clone, ENOMEM,
                   CallArgument{0, CLONE_CHILD_SETTID | CLONE_CHILD_CLEARTID | SIGCHLD});
    const int first = firstFreeDescriptor();
    EXPECT_EQ(failureOf([] { runShell("true"); }),
              "[Caller] Generic error. Fork returned: Cannot allocate memory");
    EXPECT_EQ(firstFreeDescriptor(), first);
  });
}

TEST(CallerExecFailure, NonBlockingModeThatCannotBeSetIsReported) {
  runInChild([] {
    failSystemCall(SYS_fcntl, EPERM, CallArgument{1, F_SETFL});
    EXPECT_THAT(failureOf([] {
                  CtoDynaBuf out(100, true, -1);
                  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
                  CallerExec("true", {}, {"PATH=/bin"}, {}).call(connectors);
                }),
                MatchesRegex("\\[Caller\\] Generic error\\. Can't set O_NONBLOCK for fd [0-9]+ "
                             "\\(connector #1\\): Operation not permitted"));
  });
}

TEST(CallerExecFailure, FailingPollIsReported) {
  runInChild([] {
    failSystemCall(SYS_poll, EINVAL);
    failSystemCall(SYS_ppoll, EINVAL);
    const int first = firstFreeDescriptor();
    EXPECT_EQ(failureOf([] { runShell("true"); }),
              "[Caller] Generic error. Error calling poll(): Invalid argument");
    EXPECT_EQ(firstFreeDescriptor(), first);
  });
}

TEST(CallerExecFailure, FailingWaitIsReported) {
  runInChild([] {
    failSystemCall(SYS_wait4, EINVAL, CallArgument{2, WNOHANG});
    EXPECT_EQ(failureOf([] { runShell("exit 3"); }),
              "[Caller] Generic error. waitpid returned -1: Invalid argument");
  });
}

TEST(CallerExecFailure, MissingProgramSaysSoOnItsStandardError) {
  CtoDynaBuf err(1000, true, -1);
  std::vector<Connector*> connectors = {nullptr, nullptr, &err};
  CallerExec runner("nonexistent-tool", {"x"}, {"PATH=/usr/bin:/bin"}, {});
  runner.call(connectors);
  EXPECT_EQ(err.output(),
            "expand_test: Can't execute nonexistent-tool: No such file or directory\n");
  EXPECT_TRUE(runner.normalExit());
  EXPECT_EQ(runner.exitCode(), 1);
}

TEST(CallerExecFailure, ProgramWithANameOfOneCharacterIsNotFoundIntended) {
  const TempTree tree({fileAt("x", "#!/bin/sh\nexit 0\n", 0755)});
  CtoDynaBuf err(1000, true, -1);
  std::vector<Connector*> connectors = {nullptr, nullptr, &err};
  CallerExec runner("x", {}, {"PATH=" + tree.root()}, {});
  runner.call(connectors);
  EXPECT_EQ(err.output(), "expand_test: Can't execute x: No such file or directory\n");
  EXPECT_EQ(runner.exitCode(), 1);
}

TEST(CallerExecFailure, FileThatMayNotBeExecutedSaysSo) {
  const TempTree tree({fileAt("tool", "not a program", 0644)});
  CtoDynaBuf err(10000, true, -1);
  std::vector<Connector*> connectors = {nullptr, nullptr, &err};
  const std::string path = tree.path("tool");
  CallerExec runner(path.c_str(), {}, {}, {});
  runner.call(connectors);
  EXPECT_EQ(err.output(), "expand_test: Can't execute " + path + ": Permission denied\n");
  EXPECT_EQ(runner.exitCode(), 1);
}

TEST(CallerExecFailure, MissingWorkingDirectorySaysSoOnStandardError) {
  const RunResult result = runShell("exit 0", "", {.workDir = "/nonexistent/dir"});
  EXPECT_EQ(result.err,
            "expand_test: Can't chdir to /nonexistent/dir: No such file or directory: No such "
            "file or directory\n");
  EXPECT_TRUE(result.normalExit);
  EXPECT_EQ(result.exitCode, 1);
}

TEST(CallerExecFailure, FailureBeforeTheProgramIsSilentWithoutStandardError) {
  std::vector<Connector*> connectors = {nullptr, nullptr, nullptr};
  CallerExec runner("nonexistent-tool", {}, {"PATH=/bin"}, {});
  runner.call(connectors);
  EXPECT_EQ(runner.exitCode(), 1);
}

TEST(CallerExecFailure, DescriptorThatCannotBePutInPlaceSaysSo) {
  runInChild([] {
    RunResult result;
    const std::string text = stderrOf([&] {
      failSystemCall(SYS_dup2, EBUSY, CallArgument{1, STDOUT_FILENO});
      result = runShell("exit 0");
    });
    EXPECT_THAT(text, MatchesRegex("expand_test: Can't make dup2\\([0-9]+, 1\\): Device or "
                                   "resource busy: Device or resource busy\n"));
    EXPECT_TRUE(result.normalExit);
    EXPECT_EQ(result.exitCode, 1);
  });
}

namespace {

int exitPipe[2];

}  // namespace

TEST(CallerExecFailure, ExitHandlersOfThisProcessDoNotRunInTheChild) {
  runInChild([] {
    ASSERT_EQ(pipe2(exitPipe, O_CLOEXEC | O_NONBLOCK), 0);
    atexit([] { EXPECT_EQ(write(exitPipe[1], "x", 1), 1); });
    EXPECT_EQ(runShell("exit 0", "", {.workDir = "/nonexistent"}).exitCode, 1);
    char byte;
    EXPECT_EQ(read(exitPipe[0], &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
  });
}

TEST(CallerExecFailure, BuffersOfThisProcessAreNotWrittenByTheChild) {
  const TempTree tree;
  std::FILE* const file = std::fopen(tree.path("f").c_str(), "we");
  ASSERT_NE(file, nullptr);
  std::fputs("once", file);
  EXPECT_EQ(runShell("exit 0", "", {.workDir = "/nonexistent"}).exitCode, 1);
  std::fclose(file);
  EXPECT_EQ(readFile(tree.path("f")), "once");
}

TEST(CallerExecFailure, VeryLongMessageIsCut) {
  const std::string name = "/" + std::string(9000, 'n');
  CtoDynaBuf err(100000, true, -1);
  std::vector<Connector*> connectors = {nullptr, nullptr, &err};
  CallerExec runner(name.c_str(), {}, {}, {});
  runner.call(connectors);
  EXPECT_THAT(err.output(), testing::StartsWith("expand_test: Can't execute /nnn"));
  EXPECT_EQ(err.output().size(), 8192u);
  EXPECT_EQ(runner.exitCode(), 1);
}
