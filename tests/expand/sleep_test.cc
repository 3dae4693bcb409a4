#include "expand/sleep.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>

#include "support/child_test.h"

namespace {

double secondsOf(int argument) {
  const auto start = std::chrono::steady_clock::now();
  Expand::sleep_full(argument);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

volatile sig_atomic_t interruptions = 0;

void count(int) { interruptions = interruptions + 1; }

}  // namespace

TEST(SleepFull, SignalsDoNotShortenIt) {
  test_support::runInChild([] {
    struct sigaction action = {};
    action.sa_handler = count;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 50000}, {0, 50000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_GE(secondsOf(1), 1.0);
    EXPECT_GE(interruptions, 1);
  });
}

TEST(SleepFull, NothingToSleepReturnsAtOnce) {
  EXPECT_LT(secondsOf(0), 0.5);
  EXPECT_LT(secondsOf(-5), 0.5);
}
