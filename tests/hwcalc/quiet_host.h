// Measuring against the truth: a scratch host with a network of its own, where only
// the test changes anything, and processes that hold known amounts.
#ifndef QX_TESTS_HWCALC_QUIET_HOST_H
#define QX_TESTS_HWCALC_QUIET_HOST_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "hwcalc/hw_calc.h"
#include "support/scratch_host.h"

inline QXHWCalc::PhysParams measured() {
  QXHWCalc calculator;
  calculator.measureTime = 0;
  QXHWCalc::PhysParams params;
  EXPECT_EQ(calculator.calcProcParams(&params), QXHWCalc::EC_OK) << calculator.errorText;
  return params;
}

// Runs the body where only it changes anything; the file systems are not measured.
inline void onQuietHost(const std::function<void()>& body) {
  test_support::ScratchHost host;
  host.tool("/usr/bin/df");
  host.tool("/usr/sbin/iptables");
  host.tool("/usr/sbin/ip");
  host.run([&] {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespaces here";
    // The measuring process's own heap must not grow between two samples.
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    const void* volatile room = malloc(16 << 20);
    free(const_cast<void*>(room));
    measured();
    body();
  });
}

// A process that does what it is told and then waits.
class Holder {
 public:
  // Starts the process; it runs `body` when told to.
  explicit Holder(const std::function<void()>& body) {
    EXPECT_EQ(pipe2(toHolder_, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(fromHolder_, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ != 0) return;
    char byte = 0;
    // Ends when the test does.
    while (read(toHolder_[0], &byte, 1) == 1) {
      if (byte == 'q') _exit(0);
      body();
      if (write(fromHolder_[1], "k", 1) != 1) _exit(1);
    }
    _exit(1);
  }
  ~Holder() {
    EXPECT_EQ(write(toHolder_[1], "q", 1), 1);
    waitpid(pid_, nullptr, 0);
    for (const int fd : {toHolder_[0], toHolder_[1], fromHolder_[0], fromHolder_[1]}) close(fd);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  void act() const {
    char byte = 0;
    ASSERT_EQ(write(toHolder_[1], "a", 1), 1);
    ASSERT_EQ(read(fromHolder_[0], &byte, 1), 1);
  }

 private:
  int toHolder_[2];
  int fromHolder_[2];
  pid_t pid_;
};

#endif
