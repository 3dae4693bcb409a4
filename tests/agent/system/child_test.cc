#include "agent/system/child.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include "expand/runscript.h"

namespace {

using agent::Child;
using agent::ChildOptions;

std::vector<std::string> shell(const std::string& text) { return {"/bin/sh", "-c", text}; }

int statusOf(Child& child) {
  while (!child.poll()) {
    pollfd entry{child.fd(), POLLIN, 0};
    // The end of some other child interrupts it.
    EXPECT_TRUE(poll(&entry, 1, 10000) >= 0 || errno == EINTR);
  }
  return child.status();
}

std::atomic<int> signals = 0;

TEST(Child, StatusTellsExitAndSignal) {
  Child child, killed;
  ASSERT_EQ(child.start(shell("exit 7"), {}), 0);
  EXPECT_EQ(statusOf(child), 7 << 8);
  ASSERT_EQ(killed.start(shell("kill -9 $$"), {}), 0);
  EXPECT_EQ(statusOf(killed), SIGKILL);
  EXPECT_EQ(killed.fd(), -1);
}

TEST(Child, AMissingProgramIsSaidAndLeavesNothing) {
  Child child;
  EXPECT_EQ(child.start({"/no/such/program"}, {}), ENOENT);
  EXPECT_FALSE(child.started());
  EXPECT_EQ(waitpid(-1, nullptr, __WALL | WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(Child, ItsEndRaisesNoSignalHere) {
  struct sigaction count = {}, before;
  count.sa_handler = [](int) { ++signals; };
  sigaction(SIGCHLD, &count, &before);
  signals = 0;
  for (int i = 0; i < 20; ++i) {
    Child child;
    ASSERT_EQ(child.start(shell("exit 1"), {}), 0);
    EXPECT_EQ(statusOf(child), 1 << 8);
  }
  EXPECT_EQ(signals, 0);
  sigaction(SIGCHLD, &before, nullptr);
}

TEST(Child, GoesWithItsGroupWhenItsOwnerGoes) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  {
    Child child;
    ChildOptions options;
    options.streams[1] = ends[1];
    ASSERT_EQ(child.start(shell("sleep 1000 & echo; sleep 1000"), options), 0);
    close(ends[1]);
    char line;
    ASSERT_EQ(read(ends[0], &line, 1), 1);
  }
  // The end of the pipe: nobody holds it any more, the starter least of all.
  char nothing;
  EXPECT_EQ(read(ends[0], &nothing, 1), 0);
  close(ends[0]);
  EXPECT_EQ(waitpid(-1, nullptr, __WALL | WNOHANG), -1);
}

TEST(Child, WhatDiesWithItsThreadDies) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Child child;
  std::thread([&] {
    ChildOptions options;
    options.streams[1] = ends[1];
    options.dieWithParent = true;
    ASSERT_EQ(child.start({"/bin/sleep", "1000"}, options), 0);
  }).join();
  close(ends[1]);
  char nothing;
  EXPECT_EQ(read(ends[0], &nothing, 1), 0);
  close(ends[0]);
  EXPECT_EQ(statusOf(child), 127 << 8);
}

// The runner of the plug-in takes any SIGCHLD for its program's end, and a program that
// has not ended for one that succeeded.
TEST(Child, OthersThatComeAndGoDoNotTurnFailureIntoSuccess) {
  std::atomic<bool> stop = false;
  std::thread channels([&] {
    while (!stop) {
      Child child;
      if (child.start({"/bin/true"}, {}) == 0) statusOf(child);
    }
  });
  int failures = 0;
  for (int i = 0; i < 1000; ++i) {
    std::string out, err;
    // Its pipes are closed early: only its end is left to wait for.
    failures += Expand::runscript("exec >&- 2>&-; sleep 0.003; exit 3", out, err) == 3 ? 1 : 0;
  }
  stop = true;
  channels.join();
  EXPECT_EQ(failures, 1000);
}

}  // namespace
