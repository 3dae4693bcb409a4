#include "framework/runner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "agent/system/child.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"

namespace {

using namespace std::chrono_literals;
using QXL::GenExec;

// Argument vector of a shell command.
struct Shell {
  explicit Shell(const std::string& text) : command(text) {}
  operator const char* const*() const { return argv; }
  std::string command;
  const char* argv[4] = {"/bin/sh", "-c", command.c_str(), nullptr};
};

TEST(Runner, ReturnsTheWaitStatusAndTheErrorOutput) {
  GenExec runner(16384);
  const int status = runner.execWithOnlyError(Shell("echo out; echo err >&2; exit 3"), 0, 80000);
  EXPECT_EQ(status, 3 << 8);
  EXPECT_EQ(runner.getOutput(4), "err\n");
  EXPECT_EQ(runner.getOutput(2), "");
  EXPECT_EQ(QXL::getErrorMessage(), "err\n");
}

TEST(Runner, CollectsOutputWhenAsked) {
  GenExec runner(16384);
  EXPECT_EQ(runner.execWithOnlyError(Shell("echo out"), 2, 80000), 0);
  EXPECT_EQ(runner.getOutput(2), "out\n");
}

TEST(Runner, AProgramThatDoesNotExistEndsWith127AndSaysWhy) {
  GenExec runner(16384);
  const char* const argv[] = {"/no/such/program", "x", nullptr};
  EXPECT_EQ(runner.execWithOnlyError(argv, 0, 80000), 127 << 8);
  EXPECT_EQ(runner.getOutput(4), "/no/such/program: No such file or directory");
  EXPECT_EQ(QXL::getErrorMessage(), "/no/such/program: No such file or directory");
  GenExec second(16384);
  EXPECT_EQ(second.execAsync(515, argv, 0), -1);
  EXPECT_EQ(second.wait(), 127 << 8);
  GenExec third(16384);
  EXPECT_EQ(third.execComplexBegin(argv, 2, 80000, nullptr), -1);
}

TEST(Runner, AKilledProgramsSignalIsInTheStatus) {
  GenExec runner(16384);
  EXPECT_EQ(runner.execWithOnlyError(Shell("kill -9 $$"), 0, 80000) & 127, SIGKILL);
}

TEST(Runner, HugeErrorOutputKeepsItsEnd) {
  GenExec runner(16384);
  const int status = runner.execWithOnlyError(
      Shell("i=0; while [ $i -lt 20000 ]; do echo line number $i >&2; i=$((i+1)); done"), 0, 80000);
  EXPECT_EQ(status, 0);
  const std::string kept = runner.getOutput(4);
  EXPECT_EQ(kept.size(), 16384u);
  EXPECT_THAT(kept, testing::EndsWith("line number 19999\n"));
}

TEST(Runner, StandardStreamsAreThereWhenTheAgentHasNone) {
  // Descriptors 0 to 2 closed in a child of ours, as for a daemon.
  const pid_t child = fork();
  if (child == 0) {
    for (int fd = 0; fd < 3; ++fd) close(fd);
    GenExec runner(16384);
    const int status =
        runner.execWithOnlyError(Shell("cat; echo out; echo err >&2; exit 7"), 2, 80000);
    _exit(status == 7 << 8 && runner.getOutput(2) == "out\n" && runner.getOutput(4) == "err\n" ? 0
                                                                                               : 1);
  }
  int status;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(Runner, TheEnvironmentIsTheAgents) {
  setenv("QX_RUNNER_TEST", "a value", 1);
  GenExec runner(16384);
  runner.execWithOnlyError(Shell("printf %s \"$QX_RUNNER_TEST\""), 2, 80000);
  EXPECT_EQ(runner.getOutput(2), "a value");
  unsetenv("QX_RUNNER_TEST");
}

TEST(Runner, TheProgramLeadsItsOwnGroupWithDefaultSignals) {
  GenExec runner(16384);
  runner.execWithOnlyError(Shell("cut -d' ' -f1,5 /proc/$$/stat; exec cat /proc/self/status"), 2,
                           80000);
  const std::string output = runner.getOutput(2);
  std::istringstream lines(output);
  std::string pid, group;
  lines >> pid >> group;
  EXPECT_EQ(pid, group) << output;
  EXPECT_THAT(output, testing::HasSubstr("SigBlk:\t0000000000000000"));
}

TEST(Runner, ADaemonThatKeepsTheStreamsOpenIsNotWaitedFor) {
  GenExec runner(16384);
  const auto began = std::chrono::steady_clock::now();
  // The daemon leaves the group, so that the runner cannot stop it either.
  EXPECT_EQ(runner.execWithOnlyError(Shell("setsid sleep 5 & echo started >&2"), 2, 80000), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - began, 3s);
  EXPECT_EQ(runner.getOutput(4), "started\n");
}

TEST(Runner, AtItsTimeLimitTheProgramIsStopped) {
  GenExec runner(16384);
  EXPECT_EQ(runner.execWithOnlyError(Shell("sleep 60"), 0, 1) & 127, SIGTERM);
}

TEST(Runner, AProgramThatIgnoresTermIsKilled) {
  GenExec runner(16384);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(runner.execWithOnlyError(Shell("trap '' TERM; while :; do sleep 1; done"), 0, 1) & 127,
            SIGKILL);
  EXPECT_GT(std::chrono::steady_clock::now() - began, 5s);
}

TEST(Runner, CancellingTheRequestStopsTheWholeGroup) {
  agent::CurrentRequest request;
  request.cancel = std::make_shared<agent::CancelToken>();
  const agent::CurrentRequestScope scope(request,
                                         QXL::QXLRequestContextPrototype::createInstance());
  std::thread canceller([&]() {
    std::this_thread::sleep_for(300ms);
    request.cancel->cancel();
  });
  GenExec runner(16384);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(runner.execWithOnlyError(Shell("sleep 60 & echo $! >&2; wait"), 0, 80000) & 127,
            SIGTERM);
  EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
  canceller.join();
  const pid_t sleeper = std::stoi(runner.getOutput(4));
  std::this_thread::sleep_for(100ms);
  // Gone, or a zombie that waits for the machine's first process.
  std::ifstream stat("/proc/" + std::to_string(sleeper) + "/stat");
  std::string pid, name, state;
  if (stat >> pid >> name >> state) {
    EXPECT_EQ(state, "Z");
  }
}

TEST(Runner, AnAsynchronousProgramTalksOverItsDescriptors) {
  int forth[2], back[2];
  ASSERT_EQ(pipe2(forth, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(back, O_CLOEXEC), 0);
  QXL::HWExec runner(16384);
  // As a worker does: the program may inherit them.
  fcntl(forth[0], F_SETFD, 0);
  fcntl(back[1], F_SETFD, 0);
  runner.setfd(1, forth[0]);
  runner.setfd(2, back[1]);
  ASSERT_EQ(runner.execAsync(515, Shell("cat; echo done >&2"), 0), 0);
  close(forth[0]);
  close(back[1]);
  ASSERT_EQ(write(forth[1], "through", 7), 7);
  close(forth[1]);
  char buffer[64];
  EXPECT_EQ(read(back[0], buffer, sizeof buffer), 7);
  // Only the standard streams are the program's: the end of input has reached it.
  EXPECT_EQ(runner.wait(), 0);
  EXPECT_EQ(QXL::getErrorMessage(), "done\n");
  EXPECT_EQ(read(back[0], buffer, sizeof buffer), 0);
  close(back[0]);
}

TEST(Runner, AnAsynchronousProgramNeverBlocksOnItsErrorOutput) {
  QXL::HWExec runner(1000);
  ASSERT_EQ(
      runner.execAsync(512,
                       Shell("i=0; while [ $i -lt 5000 ]; do echo a line of error output >&2; "
                             "i=$((i+1)); done; touch /proc/self/fd/1; exit 5"),
                       0),
      0);
  // Nobody waits while it writes more than a pipe holds.
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(runner.wait(), 5 << 8);
  EXPECT_EQ(runner.getOutput(4).size(), 1000u);
}

TEST(Runner, DestroyingARunnerStopsItsProgram) {
  pid_t pid;
  {
    QXL::HWExec runner(100);
    int back[2];
    ASSERT_EQ(pipe2(back, O_CLOEXEC), 0);
    runner.setfd(2, back[1]);
    ASSERT_EQ(runner.execAsync(514, Shell("echo $$; exec sleep 60"), 0), 0);
    char buffer[32] = {};
    ASSERT_GT(read(back[0], buffer, sizeof buffer - 1), 0);
    pid = std::stoi(buffer);
    EXPECT_EQ(kill(pid, 0), 0);
    close(back[0]);
    close(back[1]);
  }
  EXPECT_EQ(kill(pid, 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(Runner, ChunksEndAtEachDivider) {
  GenExec runner(16384);
  runner.setChunkDivider("\n\r");
  ASSERT_EQ(runner.execComplexBegin(Shell("printf 'one\\rtwo\\r\\nthree\\n'; sleep 0.2; "
                                          "printf 'fo'; sleep 0.2; printf 'ur\\rlast'; "
                                          "echo problem >&2; exit 23"),
                                    2, 80000, nullptr),
            0);
  std::vector<std::string> chunks;
  while (runner.execComplexGet()) {
    char* chunk = runner.gets(2);
    if (!chunk) break;
    chunks.emplace_back(chunk);
  }
  EXPECT_EQ(runner.execComplexEnd(), 23 << 8);
  EXPECT_EQ(runner.getOutput(4), "problem\n");
  EXPECT_THAT(chunks, testing::ElementsAre("one", "two", "three", "four", "last"));
}

TEST(Runner, InputIsFedToAComplexProgram) {
  GenExec runner(200000);
  const std::string input(150000, 'x');
  ASSERT_EQ(runner.execComplexBegin(Shell("cat; echo"), 2, 80000, input.c_str()), 0);
  std::string all;
  while (runner.execComplexGet()) all += runner.gets(2);
  EXPECT_EQ(runner.execComplexEnd(), 0);
  EXPECT_EQ(all, input);
}

TEST(Child, TellsAFailureToStart) {
  agent::Child child;
  EXPECT_EQ(child.start({"/etc/passwd"}, {}), EACCES);
  EXPECT_FALSE(child.started());
}

TEST(Errors, EntriesAreSeenThroughLinksUnlessAskedOtherwise) {
  EXPECT_TRUE(QXL::fentryExists("/etc/passwd", 0));
  EXPECT_FALSE(QXL::fentryExists("/no/such/thing", 0));
  const std::string link = "/tmp/qx-dangling-" + std::to_string(getpid());
  ASSERT_EQ(symlink("/no/such/thing", link.c_str()), 0);
  EXPECT_FALSE(QXL::fentryExists(link, 0));
  EXPECT_TRUE(QXL::fentryExists(link, 1));
  unlink(link.c_str());
}

}  // namespace
