// Sampling on a server whose measuring programs are the test's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "hwcalc/hw_calc.h"
#include "measured_host.h"
#include "support/failing_call.h"

using test_support::ScratchHost;

namespace {

struct Sampled {
  QXHWCalc::ec_t code;
  std::string error;
  QXHWCalc::PhysParams params;
  double seconds;
};

Sampled sample(std::uint32_t time, std::int32_t interval, QXHWCalc::PhysParams params = {}) {
  QXHWCalc calculator;
  calculator.measureTime = time;
  calculator.measureInterval = interval;
  const auto start = std::chrono::steady_clock::now();
  const QXHWCalc::ec_t code = calculator.calcProcParams(&params);
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  return {code, calculator.errorText, params, spent.count()};
}

long callsOf(const ScratchHost& host, const std::string& program) {
  const auto calls = host.callWords();
  return std::count_if(calls.begin(), calls.end(),
                       [&](const auto& words) { return words[0] == program; });
}

// Fakes ps: its first call prints the first number of lines, and so on; the last
// number stays.
ScratchHost hostWithProcesses(const std::string& counts) {
  ScratchHost host = measuredHost();
  host.tool("/usr/bin/ps",
            {.script = "n=0; [ -f /ps ] && n=$(cat /ps)\n"
                       "echo $((n + 1)) > /ps\n"
                       "set -- " +
                       counts +
                       "\n"
                       "while [ $n -gt 0 ] && [ $# -gt 1 ]; do shift; n=$((n-1)); done\n"
                       "seq \"$1\"\n"});
  return host;
}

}  // namespace

TEST(Sampling, EachCommandFillsItsCounter) {
  const ScratchHost host = measuredHost();
  host.run([&] {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespaces here";
    const Sampled sampled = sample(0, 0);
    EXPECT_EQ(sampled.code, QXHWCalc::EC_OK) << sampled.error;
    EXPECT_EQ(sampled.params.numproc, 42u);
    EXPECT_EQ(sampled.params.avnumproc, 42.0f);
    EXPECT_EQ(sampled.params.numtcpsock, 1u);    // the header lines of
    EXPECT_EQ(sampled.params.numothersock, 3u);  // one and of three files
    EXPECT_EQ(sampled.params.numfile, 17u);
    EXPECT_GT(sampled.params.privvmpages, 0u);
    EXPECT_EQ(sampled.params.shmpages, 1234u);
    EXPECT_EQ(sampled.params.numflock, 5u);
    EXPECT_EQ(sampled.params.numiptent, 8u + 2u);
    EXPECT_EQ(sampled.params.diskspace, 4001234u);
    EXPECT_EQ(sampled.params.diskinodes, 123456u);
  });
}

TEST(Sampling, CommandsRunInOrder) {
  const ScratchHost host = measuredHost();
  host.run([&] {
    sample(0, 0);
    std::vector<std::string> calls = host.calls();
    EXPECT_THAT(calls, testing::ElementsAre(
                           "/usr/bin/ps\tax", testing::StartsWith("/usr/bin/ls\t/proc/"),
                           "/usr/bin/ipcs\t-m\t-u", "/usr/sbin/iptables\t-n\t-L\t-t\tfilter",
                           "/usr/sbin/ip\troute\tlist", "/usr/bin/df\t-k\t-x\ttmpfs",
                           "/usr/bin/df\t-i\t-x\ttmpfs"));
  });
}

TEST(Sampling, NoTimeIsOneSampleWithoutSleep) {
  const ScratchHost host = measuredHost();
  host.run([&] {
    const Sampled sampled = sample(0, 10);
    EXPECT_EQ(callsOf(host, "/usr/bin/ps"), 1);
    EXPECT_LT(sampled.seconds, 1.0);
  });
}

TEST(Sampling, MeanIsOfTheLargestCountByIntention) {
  const ScratchHost host = hostWithProcesses("100 50");
  host.run([&] {
    const Sampled sampled = sample(3, 1);
    EXPECT_GE(callsOf(host, "/usr/bin/ps"), 3);
    EXPECT_EQ(sampled.params.numproc, 100u);
    EXPECT_EQ(sampled.params.avnumproc, 100.0f);
  });
}

TEST(Sampling, MeanFollowsTheLargestCount) {
  const ScratchHost host = hostWithProcesses("50 100 70");
  host.run([&] {
    const Sampled sampled = sample(3, 1);
    float mean = 0;
    const long samples = callsOf(host, "/usr/bin/ps");
    for (long n = 1; n <= samples; ++n) {
      mean += ((n == 1 ? 50.0f : 100.0f) - mean) / static_cast<float>(n);
    }
    EXPECT_GE(samples, 3);
    EXPECT_EQ(sampled.params.numproc, 100u);
    EXPECT_EQ(sampled.params.avnumproc, mean);
  });
}

TEST(Sampling, IntervalIsAtMostTheTime) {
  const ScratchHost host = measuredHost();
  host.run([&] {
    const Sampled sampled = sample(1, 10);
    EXPECT_GE(callsOf(host, "/usr/bin/ps"), 1);
    EXPECT_LT(sampled.seconds, 4.0);
  });
}

// A pause below zero is the smaller one, and none: samples follow each other at once.
TEST(Sampling, PauseIsComparedWithTheTimeAsASignedNumber) {
  const ScratchHost host = measuredHost();
  host.run([&] {
    const Sampled sampled = sample(2, -5);
    EXPECT_GT(callsOf(host, "/usr/bin/ps"), 3);
    EXPECT_LT(sampled.seconds, 6.0);
  });
}

TEST(Sampling, LastSleepIsCutAtTheEndOfTheTime) {
  const ScratchHost host = measuredHost();
  host.run([&] {
    const Sampled sampled = sample(4, 3);
    EXPECT_GE(callsOf(host, "/usr/bin/ps"), 2);
    EXPECT_LT(sampled.seconds, 5.9);
    EXPECT_GT(sampled.seconds, 2.9);
  });
}

TEST(Sampling, LargerValuesInTheRecordStay) {
  measuredHost().run([] {
    QXHWCalc::PhysParams params;
    params.numproc = 1000;
    params.avnumproc = 1e30f;  // begins anew
    params.numtcpsock = params.numothersock = params.numfile = 1000;
    params.shmpages = 2000;
    params.numflock = params.numiptent = 1000;
    params.privvmpages = params.lockedpages = 2147483647;
    params.diskspace = params.diskinodes = 2000000000;
    const QXHWCalc::PhysParams after = sample(0, 0, params).params;
    EXPECT_EQ(after.numproc, 1000u);
    EXPECT_EQ(after.avnumproc, 1000.0f);
    EXPECT_EQ(after.numtcpsock, 1000u);
    EXPECT_EQ(after.numothersock, 1000u);
    EXPECT_EQ(after.numfile, 1000u);
    EXPECT_EQ(after.shmpages, 2000u);
    EXPECT_EQ(after.numflock, 1000u);
    EXPECT_EQ(after.numiptent, 1000u);
    EXPECT_EQ(after.privvmpages, 2147483647u);
    EXPECT_EQ(after.lockedpages, 2147483647u);
    EXPECT_EQ(after.diskspace, 2000000000u);
    EXPECT_EQ(after.diskinodes, 2000000000u);
  });
}

TEST(Sampling, CountsCompareAsSigned) {
  measuredHost().run([] {
    QXHWCalc::PhysParams params;
    params.numproc = 4294967295u;
    EXPECT_EQ(sample(0, 0, params).params.numproc, 42u);
  });
}

TEST(Sampling, WithoutFirewallToolTheRoutesCountAlone) {
  ScratchHost host = measuredHost();
  host.tool("/usr/sbin/iptables", {.status = 127, .err = "not found\n"});
  host.run([] {
    const Sampled sampled = sample(0, 0);
    EXPECT_EQ(sampled.code, QXHWCalc::EC_OK);
    EXPECT_EQ(sampled.params.numiptent, 2u);
  });
}

namespace {

// The host's counting program fails at its call number `failing`; its other calls
// print 7.
ScratchHost hostWithFailingCount(int failing) {
  ScratchHost host = measuredHost();
  host.tool("/usr/bin/wc", {.script = "n=1; [ -f /wc ] && n=$(( $(cat /wc) + 1 ))\n"
                                      "echo $n > /wc\n"
                                      "[ $n = " +
                                      std::to_string(failing) +
                                      " ] && { echo out of order >&2; exit 3; }\n"
                                      "echo 7\n"});
  return host;
}

void expectExecError(const ScratchHost& host, const std::string& command,
                     const std::string& output) {
  host.run([&] {
    const Sampled sampled = sample(5, 5);
    EXPECT_EQ(sampled.code, 2u);
    EXPECT_EQ(sampled.error, "Error running '" + command + "':\n" + output);
    EXPECT_LT(sampled.seconds, 2.0);
  });
}

}  // namespace

TEST(SamplingFailure, CountingCommandsEndTheMeasurement) {
  const std::string commands[] = {
      "ps ax | wc -l",
      "wc -l < /proc/net/tcp",
      "cat /proc/net/unix /proc/net/udp /proc/net/raw | wc -l",
      "ls /proc/*/fd/* | wc -l",
      "wc -l < /proc/locks",
  };
  int call = 1;
  for (const std::string& command : commands) {
    expectExecError(hostWithFailingCount(call++), command, "out of order\n");
  }
}

TEST(SamplingFailure, OtherCommandsEndTheMeasurement) {
  expectExecError(measuredHost().tool("/usr/bin/ipcs", {.status = 1, .err = "no ipc\n"}),
                  "/usr/bin/ipcs -m -u", "no ipc\n");
  expectExecError(measuredHost().tool("/usr/bin/df", {.status = 1, .err = "no df\n"}),
                  "df -k -x tmpfs", "no df\n");
  expectExecError(
      measuredHost().tool("/usr/bin/df",
                          {.script = "[ \"$1\" = -i ] && { echo no inodes >&2; exit 1; }"}),
      "df -i -x tmpfs", "no inodes\n");
}

TEST(SamplingFailure, FirewallAndRouteCountsAreZeroWhenTheyFail) {
  hostWithFailingCount(6).run([] { EXPECT_EQ(sample(0, 0).params.numiptent, 7u); });
  hostWithFailingCount(7).run([] { EXPECT_EQ(sample(0, 0).params.numiptent, 7u); });
}

TEST(SamplingFailure, WhatAFailingRouteCountPrintsDoesNotCount) {
  ScratchHost host = measuredHost();
  host.tool("/usr/bin/wc", {.script = "n=1; [ -f /wc ] && n=$(( $(cat /wc) + 1 ))\n"
                                      "echo $n > /wc; echo 7\n"
                                      "[ $n = 6 ] || [ $n = 7 ] && exit 3\n"});
  host.run([] {
    const Sampled sampled = sample(0, 0);
    EXPECT_EQ(sampled.code, QXHWCalc::EC_OK) << sampled.error;
    EXPECT_EQ(sampled.params.numiptent, 0u);
  });
}

TEST(SamplingFailure, EarlierValuesStay) {
  hostWithFailingCount(3).run([] {
    const Sampled sampled = sample(0, 0);
    EXPECT_EQ(sampled.params.numproc, 7u);
    EXPECT_EQ(sampled.params.numtcpsock, 7u);
    EXPECT_EQ(sampled.params.numothersock, 0u);
  });
}

TEST(SamplingFailure, MissingProcDirectoryIsAnError) {
  ScratchHost host = hostWithFailingCount(0);
  host.run([] {
    while (umount2("/proc", MNT_DETACH) == 0) {
    }
    ASSERT_EQ(rmdir("/proc"), 0);
    QXHWCalc calculator;
    QXHWCalc::PhysParams params;
    EXPECT_EQ(calculator.calcMemInfo(&params), 3u);
    EXPECT_STREQ(calculator.errorText, "Error opening /proc: No such file or directory");
    EXPECT_EQ(params.privvmpages, 0u);
    // What looks for leaks at the process's end needs it.
    ASSERT_EQ(mkdir("/proc", 0755), 0);
    ASSERT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
  });
}

TEST(SamplingFailure, ShellThatCannotBeForkedIsAnExecError) {
  measuredHost().run([] {
    test_support::failSystemCall(
        SYS_clone, EAGAIN,
        test_support::CallArgument{0, CLONE_CHILD_CLEARTID | CLONE_CHILD_SETTID | SIGCHLD});
    const Sampled sampled = sample(0, 0);
    EXPECT_EQ(sampled.code, 2u);
    EXPECT_THAT(sampled.error, testing::StartsWith("Error running 'ps ax | wc -l':\n"));
    EXPECT_THAT(sampled.error,
                testing::HasSubstr("Fork returned: Resource temporarily unavailable"));
  });
}
