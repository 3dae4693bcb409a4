#include "expand/caller.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "run_program.h"
#include "support/child_test.h"
#include "support/temp_tree.h"

using namespace Expand;
using namespace test_support;
using testing::ElementsAre;

namespace {

const std::list<std::string> PATH = {"PATH=/usr/bin:/bin"};

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::string line;
  for (const char c : text) {
    if (c == '\n') {
      result.push_back(line);
      line.clear();
    } else {
      line += c;
    }
  }
  return result;
}

}  // namespace

TEST(CallerExec, OutputErrorOutputAndExitCodeAreCollected) {
  const RunResult result = runShell("echo out; echo err >&2; exit 3");
  EXPECT_EQ(result.out, "out\n");
  EXPECT_EQ(result.err, "err\n");
  EXPECT_TRUE(result.normalExit);
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.signal, 0);
}

TEST(CallerExec, NothingIsKnownBeforeTheRun) {
  const CallerExec runner("true", {}, PATH, {});
  EXPECT_EQ(runner.pid(), 0);
  EXPECT_EQ(runner.exitCode(), -1);
  EXPECT_FALSE(runner.normalExit());
  EXPECT_EQ(runner.killingSignal(), 0);
  EXPECT_EQ(runner.getCoreDumpName(), "");
}

TEST(CallerExec, ProgramGetsItsNameAndArgumentsUnchanged) {
  CtoDynaBuf out(10000, true, -1);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  CallerExec runner("printf", {"[%s]", "a b", "", "$HOME", "it's"}, PATH, {});
  runner.call(connectors);
  EXPECT_EQ(out.output(), "[a b][][$HOME][it's]");

  CtoDynaBuf name(10000, true, -1);
  connectors = {nullptr, &name, nullptr};
  CallerExec shell("sh", {"-c", "tr '\\0' ' ' < /proc/$$/cmdline | cut -d ' ' -f 1"}, PATH, {});
  shell.call(connectors);
  EXPECT_EQ(name.output(), "sh\n");
}

TEST(CallerExec, InputIsFed) { EXPECT_EQ(runShell("cat", "some\ninput").out, "some\ninput"); }

TEST(CallerExec, EmptyInputIsEndOfFile) {
  const RunResult result = runShell("cat; echo end");
  EXPECT_EQ(result.out, "end\n");
}

TEST(CallerExec, InputBeyond4096BytesRepeatsTheBeginningIntended) {
  const std::string input = std::string(4096, 'a') + std::string(4096, 'b') + std::string(100, 'c');
  EXPECT_EQ(runShell("cat", input).out, std::string(input.size(), 'a'));
}

TEST(CallerExec, HugeInputAndOutputPassWithoutBlocking) {
  const std::string input(20u << 20, 'x');
  const RunResult result = runShell("tee /dev/stderr", input);
  EXPECT_EQ(result.out.size(), input.size());
  EXPECT_EQ(result.err.size(), input.size());
  EXPECT_EQ(result.exitCode, 0);
}

TEST(CallerExec, InputThatIsNotReadIsNoFailure) {
  const RunResult result = runShell("exec 0<&-; sleep 0.1; exit 4", std::string(1 << 20, 'x'));
  EXPECT_EQ(result.exitCode, 4);
}

TEST(CallerExec, HugeOutputIsCollected) {
  const RunResult result = runShell("head -c 50000000 /dev/zero");
  EXPECT_EQ(result.out, std::string(50000000, '\0'));
  EXPECT_EQ(result.exitCode, 0);
}

TEST(CallerExec, OutputBeyondTheLimitClosesThePipe) {
  CtoDynaBuf out(10000, false, -1);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  CallerExec runner("yes", {}, PATH, {});
  runner.call(connectors);
  EXPECT_EQ(out.output().size(), 10000u);
  EXPECT_FALSE(runner.normalExit());
  EXPECT_EQ(runner.killingSignal(), SIGPIPE);
}

TEST(CallerExec, OutputBeyondTheLimitIsDroppedWithKeepReading) {
  CtoDynaBuf out(10000, true, -1);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  CallerExec runner("head", {"-c", "1000000", "/dev/zero"}, PATH, {});
  runner.call(connectors);
  EXPECT_EQ(out.output().size(), 10000u);
  EXPECT_EQ(runner.exitCode(), 0);
}

TEST(CallerExec, OutputIsCopiedToADescriptor) {
  const TempTree tree;
  const int copy = open(tree.path("copy").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  CtoDynaBuf out(3, true, copy);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  CallerExec runner("echo", {"hello"}, PATH, {});
  runner.call(connectors);
  close(copy);
  EXPECT_EQ(out.output(), "hel");
  EXPECT_EQ(readFile(tree.path("copy")), "hello\n");
}

TEST(CallerExec, DiscardedOutputIsAClosedPipe) {
  CtoStaticBuf discard;
  std::vector<Connector*> connectors = {nullptr, &discard, nullptr};
  CallerExec runner("yes", {}, PATH, {});
  runner.call(connectors);
  EXPECT_EQ(runner.killingSignal(), SIGPIPE);
}

TEST(CallerExec, DescriptorWithoutConnectorIsClosedIntended) {
  CtoDynaBuf out(10000, true, -1);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  CallerExec runner("sh", {"-c", "for i in 0 1 2; do test -e /proc/$$/fd/$i && echo $i; done"},
                    PATH, {});
  runner.call(connectors);
  EXPECT_EQ(out.output(), "1\n");
}

TEST(CallerExec, WithoutAnyConnectorTheProgramRunsWithAllThreeClosed) {
  const TempTree tree;
  std::vector<Connector*> connectors = {nullptr, nullptr, nullptr};
  CallerExec runner("sh",
                    {"-c", "test ! -e /proc/$$/fd/0 -a ! -e /proc/$$/fd/1 -a ! -e /proc/$$/fd/2"},
                    PATH, {});
  runner.call(connectors);
  EXPECT_EQ(runner.exitCode(), 0);
}

TEST(CallerExec, NoOtherDescriptorOfTheRunnerReachesTheProgram) {
  runInChild([] {
    // Whatever the test program itself has been given stays out of the picture.
    ASSERT_EQ(close_range(3, ~0u, CLOSE_RANGE_CLOEXEC), 0);
    const RunResult result = runShell("ls /proc/$$/fd");
    EXPECT_THAT(lines(result.out), ElementsAre("0", "1", "2"));
  });
}

TEST(CallerExec, ClosedStandardDescriptorsOfThisProcessDoNotMatter) {
  for (int closed = 1; closed < 8; ++closed) {
    runInChild([&] {
      for (int fd = 0; fd < 3; ++fd) {
        if (closed & 1 << fd) close(fd);
      }
      const RunResult result = runShell("cat; echo err >&2; exit 6", "input");
      EXPECT_EQ(result.out, "input") << closed;
      EXPECT_EQ(result.err, "err\n") << closed;
      EXPECT_EQ(result.exitCode, 6) << closed;
    });
  }
}

TEST(CallerExec, AllDescriptorsAreClosedAfterwards) {
  runInChild([] {
    ASSERT_EQ(close_range(3, 199, 0), 0);
    runShell("echo x; exit 1", "in");
    for (int fd = 3; fd < 100; ++fd) EXPECT_EQ(fcntl(fd, F_GETFD), -1) << fd;
  });
}

TEST(CallerExec, EnvironmentIsExactlyTheGivenOne) {
  setenv("QX_EXPAND_TEST_LEAK", "1", 1);
  CtoDynaBuf out(10000, true, -1);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  CallerExec runner("env", {}, {"Z=1", "PATH=/usr/bin:/bin", "A=two words", "EMPTY="}, {});
  runner.call(connectors);
  EXPECT_EQ(out.output(), "Z=1\nPATH=/usr/bin:/bin\nA=two words\nEMPTY=\n");
  unsetenv("QX_EXPAND_TEST_LEAK");
}

TEST(CallerExec, ProgramRunsInTheWorkingDirectory) {
  const TempTree tree({dirAt("here")});
  EXPECT_EQ(runShell("pwd -P", "", {.workDir = tree.path("here")}).out, tree.path("here") + "\n");
}

TEST(CallerExec, EmptyWorkingDirectoryChangesNothing) {
  char here[4096];
  ASSERT_NE(getcwd(here, sizeof(here)), nullptr);
  EXPECT_EQ(runShell("pwd -P").out, std::string(here) + "\n");
}

TEST(CallerExec, NameWithoutPathIsRelativeToTheWorkingDirectory) {
  const TempTree tree({fileAt("prog", "#!/bin/sh\nexit 5\n", 0755)});
  std::vector<Connector*> connectors = {nullptr, nullptr, nullptr};
  CallerExec runner("prog", {}, {"HOME=/"}, {.workDir = tree.root()});
  runner.call(connectors);
  EXPECT_EQ(runner.exitCode(), 5);
}

TEST(CallerExec, RelativePathEntryIsRelativeToTheWorkingDirectory) {
  const TempTree tree({fileAt("sub/prog", "#!/bin/sh\nexit 5\n", 0755)});
  std::vector<Connector*> connectors = {nullptr, nullptr, nullptr};
  CallerExec runner("prog", {}, {"PATH=sub"}, {.workDir = tree.root()});
  runner.call(connectors);
  EXPECT_EQ(runner.exitCode(), 5);
}

TEST(CallerExec, ProgramIsFoundAlongItsOwnPath) {
  const TempTree tree({fileAt("bin/true", "#!/bin/sh\nexit 7\n", 0755)});
  std::vector<Connector*> connectors = {nullptr, nullptr, nullptr};
  CallerExec runner("true", {}, {"PATH=/nonexistent:" + tree.path("bin") + ":/bin"}, {});
  runner.call(connectors);
  EXPECT_EQ(runner.exitCode(), 7);
}

TEST(CallerExec, KilledProgramHasASignalAndNoExitCode) {
  const RunResult result = runShell("echo before; kill -KILL $$");
  EXPECT_EQ(result.out, "before\n");
  EXPECT_FALSE(result.normalExit);
  EXPECT_EQ(result.exitCode, -1);
  EXPECT_EQ(result.signal, SIGKILL);
}

TEST(CallerExec, ExitCodesGoUpTo255) {
  EXPECT_EQ(runShell("exit 255").exitCode, 255);
  EXPECT_EQ(runShell("exit 128").exitCode, 128);
}

TEST(CallerExec, OutputHeldOpenByAGrandchildIsDrained) {
  const RunResult result = runShell("(sleep 0.4; echo late) & exit 3");
  EXPECT_EQ(result.out, "late\n");
  EXPECT_EQ(result.exitCode, 3);
}

TEST(CallerExec, ExitWithoutDrainingDoesNotWaitForAGrandchild) {
  runInChild([] {
    const auto start = std::chrono::steady_clock::now();
    // Reads of the first line are sure: the shell ends only after a while.
    const RunResult result = runShell("sleep 60 & echo $!; sleep 0.3; exit 3", "",
                                      {.workDir = "", .exitWithoutDraining = true});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(result.exitCode, 3);
    const pid_t sleeper = atoi(result.out.c_str());
    ASSERT_GT(sleeper, 1);
    EXPECT_EQ(kill(sleeper, SIGKILL), 0);
    // Also the ends that were still open.
    for (int fd = 3; fd < 100; ++fd) {
      const int flags = fcntl(fd, F_GETFL);
      EXPECT_TRUE(flags == -1 || !(flags & O_NONBLOCK)) << fd;
    }
  });
}

TEST(CallerExec, ManyShortRunsLoseNoTime) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(runShell("exit 9").exitCode, 9);
  // A missed signal costs a second each.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(CallerExec, SeveralRunnersAtOnceCollectTheirOwnOutput) {
  runInChild([] {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([t] {
        for (int i = 0; i < 5; ++i) {
          const std::string word = std::to_string(t) + "." + std::to_string(i);
          EXPECT_EQ(runShell("cat; echo " + word + " >&2", word).out, word);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
}

TEST(CallerExec, EnterOutsideOfACallStartsTheProgramAndLeavesTheSignalsAlone) {
  runInChild([] {
    std::vector<Connector*> connectors = {nullptr, nullptr, nullptr};
    CallerExec runner("sh", {"-c", "exit 8"}, PATH, {});
    const pid_t pid = runner.enter(connectors);
    EXPECT_GT(pid, 0);
    EXPECT_EQ(pid, runner.pid());
    struct sigaction action;
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(WEXITSTATUS(status), 8);
    runner.leave();
  });
}

TEST(CallerExec, EnterOutsideOfACallConnectsThePipes) {
  struct Runner : CallerExec {
    using CallerExec::CallerExec;
    using CallerExec::live_;
    using CallerExec::pipes_;
  };
  runInChild([] {
    CtoDynaBuf out(100, true, -1);
    std::vector<Connector*> connectors = {nullptr, &out, nullptr};
    Runner runner("echo", {"hello"}, PATH, {});
    const pid_t pid = runner.enter(connectors);
    EXPECT_EQ(runner.live_, 0u);
    EXPECT_EQ(runner.pipes_[1][1], -1);
    const int end = runner.pipes_[1][0];
    EXPECT_TRUE(fcntl(end, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
    char buffer[7] = {};
    EXPECT_EQ(read(end, buffer, 6), 6);
    EXPECT_STREQ(buffer, "hello\n");
    close(end);
  });
}
