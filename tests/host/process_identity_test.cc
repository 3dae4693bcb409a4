#include "host/process_identity.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "host/file.h"
#include "host/state.h"
#include "host/text.h"

namespace {

host::ProcessIdentity identityOf(pid_t pid) {
  host::ProcessIdentity identity = host::thisProcess();
  identity.pid = pid;
  identity.startTime =
      host::parseStartTime(*host::readFile(host::textf("/proc/%d/stat", pid))).value();
  return identity;
}

TEST(ProcessIdentity, ThisProcessIsAlive) {
  EXPECT_TRUE(host::isAlive(host::thisProcess()));
  EXPECT_EQ(host::thisProcess(), identityOf(getpid()));
}

TEST(ProcessIdentity, AnotherStartOrAnotherBootIsAnotherProcess) {
  host::ProcessIdentity other = host::thisProcess();
  other.startTime += 1;
  EXPECT_FALSE(host::isAlive(other));
  other = host::thisProcess();
  other.boot[0] = other.boot[0] == '0' ? '1' : '0';
  EXPECT_FALSE(host::isAlive(other));
  EXPECT_FALSE(host::isOfThisBoot(other));
}

TEST(ProcessIdentity, OneThatNobodyHasWaitedForIsDead) {
  const pid_t pid = fork();
  if (pid == 0) {
    pause();
    _exit(0);
  }
  const host::ProcessIdentity child = identityOf(pid);
  EXPECT_TRUE(host::isAlive(child));
  kill(pid, SIGKILL);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  EXPECT_FALSE(host::isAlive(child));
  waitpid(pid, nullptr, 0);
  EXPECT_FALSE(host::isAlive(child));
}

}  // namespace
