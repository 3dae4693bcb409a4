#include "expand/sigmask.h"

#include <gtest/gtest.h>

#include "support/child_test.h"

using Expand::SigMask;
using test_support::runInChild;

namespace {

bool isBlocked(int signal) {
  sigset_t mask;
  sigemptyset(&mask);
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  return sigismember(&mask, signal) == 1;
}

void setMask(const std::vector<int>& signals) {
  sigset_t mask;
  sigemptyset(&mask);
  for (const int signal : signals) sigaddset(&mask, signal);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
}

}  // namespace

TEST(SigMask, ConstructionChangesNothing) {
  runInChild([] {
    setMask({});
    const SigMask mask(std::vector<int>{SIGCHLD});
    EXPECT_FALSE(isBlocked(SIGCHLD));
  });
}

TEST(SigMask, BlockAndUnblockTouchOnlyTheirSignals) {
  runInChild([] {
    setMask({SIGUSR1});
    SigMask mask(std::vector<int>{SIGCHLD, SIGUSR2});
    mask.block();
    EXPECT_TRUE(isBlocked(SIGCHLD));
    EXPECT_TRUE(isBlocked(SIGUSR2));
    EXPECT_TRUE(isBlocked(SIGUSR1));
    EXPECT_FALSE(isBlocked(SIGTERM));
    mask.unblock();
    EXPECT_FALSE(isBlocked(SIGCHLD));
    EXPECT_FALSE(isBlocked(SIGUSR2));
    EXPECT_TRUE(isBlocked(SIGUSR1));
  });
}

TEST(SigMask, EndOfLifePutsTheMaskBack) {
  runInChild([] {
    setMask({SIGUSR1});
    {
      SigMask mask(std::vector<int>{SIGUSR1, SIGCHLD});
      mask.block();
      mask.unblock();
      EXPECT_FALSE(isBlocked(SIGUSR1));
    }
    EXPECT_TRUE(isBlocked(SIGUSR1));
    EXPECT_FALSE(isBlocked(SIGCHLD));
  });
}

TEST(SigMask, WithoutAChangeTheMaskIsNotPutBack) {
  runInChild([] {
    setMask({});
    {
      SigMask mask(std::vector<int>{SIGCHLD});
      setMask({SIGTERM});
      mask.revert();
      EXPECT_TRUE(isBlocked(SIGTERM));
    }
    EXPECT_TRUE(isBlocked(SIGTERM));
  });
}

TEST(SigMask, RevertPutsTheMaskBackAtOnce) {
  runInChild([] {
    setMask({});
    SigMask mask(std::vector<int>{SIGCHLD});
    mask.block();
    mask.revert();
    EXPECT_FALSE(isBlocked(SIGCHLD));
  });
}

TEST(SigMask, SetOfSignalsIsTakenAsItIs) {
  runInChild([] {
    setMask({});
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    SigMask mask(set);
    mask.block();
    EXPECT_TRUE(isBlocked(SIGHUP));
    EXPECT_FALSE(isBlocked(SIGCHLD));
  });
}

TEST(SigMask, DumpNamesTheSignalsBlockedNow) {
  runInChild([] {
    setMask({SIGHUP, SIGUSR1});
    const SigMask mask(std::vector<int>{SIGCHLD});
    EXPECT_EQ(mask.dump(),
              "Dumping currently blocked signals: SIGHUP SIGUSR1\n"
              "Signals mask will not be reverted upon destruction.\n");
  });
}

TEST(SigMask, DumpNamesTheSavedSignalsAfterAChange) {
  runInChild([] {
    setMask({SIGHUP});
    SigMask mask(std::vector<int>{SIGCHLD});
    mask.block();
    EXPECT_EQ(mask.dump(),
              "Dumping currently blocked signals: SIGHUP SIGCHLD\n"
              "Upon destruction signals mask wil be reverted to: SIGHUP\n");
  });
}

TEST(SigMask, DumpKnowsTheNamesOfSignals1To30) {
  runInChild([] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    const SigMask mask(std::vector<int>{SIGCHLD});
    // Kill and stop cannot be blocked; signal 31 and above have no name here.
    EXPECT_EQ(mask.dump(),
              "Dumping currently blocked signals: SIGHUP SIGINT SIGQUIT SIGILL SIGTRAP SIGABRT "
              "SIGBUS SIGFPE SIGUSR1 SIGSEGV SIGUSR2 SIGPIPE SIGALRM SIGTERM SIGSTKFLT SIGCHLD "
              "SIGCONT SIGTSTP SIGTTIN SIGTTOU SIGURG SIGXCPU SIGXFSZ SIGVTALRM SIGPROF SIGWINCH "
              "SIGIO SIGPWR\n"
              "Signals mask will not be reverted upon destruction.\n");
  });
}

TEST(SigMask, DumpWithNothingBlockedNamesNothing) {
  runInChild([] {
    setMask({});
    const SigMask mask(std::vector<int>{SIGCHLD});
    EXPECT_EQ(mask.dump(),
              "Dumping currently blocked signals:\n"
              "Signals mask will not be reverted upon destruction.\n");
  });
}
