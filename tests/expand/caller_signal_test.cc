// The signals of a run: what is installed, what a signal does to the wait, and the
// order of the steps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "expand/error.h"
#include "run_program.h"
#include "support/child_test.h"
#include "support/temp_tree.h"

using namespace Expand;
using test_support::runInChild;
using testing::ElementsAre;

namespace {

const std::list<std::string> SIGNAL_PATH = {"PATH=/usr/bin:/bin"};

// A runner that lets the test do something right after the start.
struct Prepared : CallerExec {
  Prepared(const std::string& command, std::function<void(Prepared&)> prepare)
      : CallerExec("sh", {"-c", command}, SIGNAL_PATH, {}), prepare_(std::move(prepare)) {}
  void prepareMainLoop_() override { prepare_(*this); }

  std::function<void(Prepared&)> prepare_;
};

struct sigaction actionOf(int signal) {
  struct sigaction action;
  sigaction(signal, nullptr, &action);
  return action;
}

void handler(int) {}

// Starts a child that ends by itself after so many milliseconds.
pid_t otherChild(int milliseconds) {
  const pid_t pid = fork();
  if (pid == 0) {
    usleep(static_cast<useconds_t>(milliseconds) * 1000);
    _exit(0);
  }
  return pid;
}

void run(CallerExec& runner) {
  CtoDynaBuf out(1000, true, -1);
  std::vector<Connector*> connectors = {nullptr, &out, nullptr};
  runner.call(connectors);
}

}  // namespace

TEST(CallerExecSignals, HandlersAreThereDuringTheRunAndPutBackAfter) {
  runInChild([] {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(SIGCHLD, &action, nullptr);
    sigaction(SIGPIPE, &action, nullptr);
    Prepared runner("exit 2", [](Prepared&) {
      EXPECT_EQ(actionOf(SIGPIPE).sa_handler, SIG_IGN);
      EXPECT_EQ(actionOf(SIGCHLD).sa_handler, CallerExec::handle_CHLD);
      EXPECT_EQ(actionOf(SIGCHLD).sa_flags & ~0x04000000, 0);  // but for SA_RESTORER
    });
    run(runner);
    EXPECT_EQ(runner.exitCode(), 2);
    for (const int signal : {SIGCHLD, SIGPIPE}) {
      EXPECT_EQ(actionOf(signal).sa_handler, handler);
      EXPECT_TRUE(actionOf(signal).sa_flags & SA_RESTART);
    }
  });
}

TEST(CallerExecSignals, ProgramGetsTheDispositionsOfBefore) {
  runInChild([] {
    // What a program ignores, and what this process does; whoever started the tests
    // may have had signals ignored as well.
    const auto ofProgram = [] {
      CtoDynaBuf out(1000, true, -1);
      std::vector<Connector*> connectors = {nullptr, &out, nullptr};
      CallerExec program("grep", {"SigIgn", "/proc/self/status"}, SIGNAL_PATH, {});
      program.call(connectors);
      return out.output();
    };
    const auto own = [] {
      const std::string status = test_support::readFile("/proc/self/status");
      const std::size_t at = status.find("SigIgn");
      return status.substr(at, status.find('\n', at) + 1 - at);
    };
    // Ignored by the runner for itself, but not for the program.
    signal(SIGPIPE, SIG_DFL);
    const std::string before = own();
    EXPECT_EQ(ofProgram(), before);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_NE(own(), before);
    EXPECT_EQ(ofProgram(), own());
  });
}

TEST(CallerExecSignals, MaskIsPutBack) {
  runInChild([] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    EXPECT_EQ(runShell("exit 3").exitCode, 3);
    sigprocmask(SIG_BLOCK, nullptr, &set);
    EXPECT_EQ(sigismember(&set, SIGCHLD), 1);
  });
}

TEST(CallerExecSignals, HandlerOnlySetsTheFlag) {
  CallerExec::sigchld_received = false;
  CallerExec::handle_CHLD(SIGCHLD);
  EXPECT_TRUE(CallerExec::sigchld_received);
  CallerExec::sigchld_received = false;
  EXPECT_EQ(sizeof(CallerExec::sigchld_received), 1u);
}

TEST(CallerExecSignals, AnotherChildsEndCountsAsThisOnesIntended) {
  runInChild([] {
    // The program has closed its output, so that only its end is waited for.
    const pid_t other = otherChild(300);
    Prepared runner("exec >&-; sleep 60; exit 7", [](Prepared&) {});
    run(runner);
    EXPECT_TRUE(runner.normalExit());
    EXPECT_EQ(runner.exitCode(), 0);
    EXPECT_EQ(kill(runner.pid(), 0), 0) << "the program should still be running";
    kill(runner.pid(), SIGKILL);
    EXPECT_EQ(waitpid(runner.pid(), nullptr, 0), runner.pid());
    EXPECT_EQ(waitpid(other, nullptr, 0), other);
  });
}

TEST(CallerExecSignals, AnotherChildsEndDoesNotCutTheOutput) {
  runInChild([] {
    const pid_t other = otherChild(200);
    const RunResult result = runShell("sleep 0.6; echo late");
    EXPECT_EQ(result.out, "late\n");
    EXPECT_EQ(waitpid(other, nullptr, 0), other);
  });
}

TEST(CallerExecSignals, SignalAfterTheProgramWasWaitedForIsIgnored) {
  runInChild([] {
    // The program ends first; its own child keeps the output open until after the
    // other child's end, for which there is nothing to wait for any more.
    const pid_t other = otherChild(400);
    const RunResult result = runShell("(sleep 0.8; echo late) & exit 4");
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.out, "late\n");
    EXPECT_EQ(waitpid(other, nullptr, 0), other);
  });
}

TEST(CallerExecSignals, LostSignalDelaysTheEndByAtMostTheTimeout) {
  runInChild([] {
    const auto start = std::chrono::steady_clock::now();
    Prepared runner("exit 5", [](Prepared&) { signal(SIGCHLD, SIG_DFL); });
    run(runner);
    EXPECT_EQ(runner.exitCode(), 5);
    // The timeout is a second.
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4500));
  });
}

TEST(CallerExecSignals, RunningProgramIsWaitedForBeyondTheTimeout) {
  runInChild([] {
    const RunResult result = runShell("exec >&- 2>&-; sleep 1.6; exit 6");
    EXPECT_EQ(result.exitCode, 6);
  });
}

TEST(CallerExecSignals, ProgramWaitedForBySomebodyElseHasNoResult) {
  runInChild([] {
    Prepared runner("exit 5", [](Prepared& self) {
      signal(SIGCHLD, SIG_DFL);
      EXPECT_EQ(waitpid(self.pid(), nullptr, 0), self.pid());
    });
    run(runner);
    EXPECT_FALSE(runner.normalExit());
    EXPECT_EQ(runner.exitCode(), -1);
    EXPECT_EQ(runner.killingSignal(), 0);
  });
}

namespace {

// Notes the order of the steps, and what the base class knows at each.
struct Recorder : CallerBase {
  Recorder() : CallerBase("program", {"a"}, {"B=c"}) {}

  pid_t enter(std::vector<Connector*>& connectors) override {
    note("enter");
    pid_ = 4711;
    return CallerBase::enter(connectors);
  }
  void leave() override {
    note("leave");
    CallerBase::leave();
  }
  void prepareMainLoop_() override { note("prepare"); }
  void doMainLoop_() override {
    note("do");
    if (fail) throw Error(Error::CALLER_GENERIC, "failed");
  }
  void finishMainLoop_() override { note("finish"); }

  void note(const std::string& step) {
    steps.push_back(step + (inCall_ ? " call" : "") + (entered_ ? " entered" : ""));
  }
  using CallerBase::entered_;
  using CallerBase::inCall_;

  std::vector<std::string> steps;
  bool fail = false;
};

}  // namespace

TEST(CallerBase, CallRunsTheStepsInOrder) {
  Recorder recorder;
  std::vector<Connector*> none = {nullptr, nullptr, nullptr};
  recorder.call(none);
  EXPECT_THAT(recorder.steps, ElementsAre("enter call", "prepare call entered", "do call entered",
                                          "finish call entered", "leave call entered"));
  EXPECT_FALSE(recorder.inCall_);
  EXPECT_FALSE(recorder.entered_);
}

TEST(CallerBase, EnterReturnsThePidAndLeaveEndsIt) {
  Recorder recorder;
  std::vector<Connector*> none = {nullptr, nullptr, nullptr};
  EXPECT_EQ(recorder.enter(none), 4711);
  EXPECT_TRUE(recorder.entered_);
  EXPECT_FALSE(recorder.inCall_);
  recorder.leave();
  EXPECT_FALSE(recorder.entered_);
}

TEST(CallerBase, ErrorInAStepEndsTheCall) {
  Recorder recorder;
  recorder.fail = true;
  std::vector<Connector*> none = {nullptr, nullptr, nullptr};
  EXPECT_THROW(recorder.call(none), Error);
  EXPECT_THAT(recorder.steps, ElementsAre("enter call", "prepare call entered", "do call entered"));
  EXPECT_FALSE(recorder.inCall_);
  EXPECT_FALSE(recorder.entered_);
}
