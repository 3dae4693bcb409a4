#include "node/settle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "host/error.h"
#include "host/file.h"
#include "host/state.h"
#include "host/text.h"
#include "node/engine.h"
#include "support/scratch_host.h"

namespace {

using host::Error;
using host::ExitCode;
using test_support::ScratchHost;
using testing::HasSubstr;

ScratchHost host() {
  ScratchHost host;
  host.dir("/run/qx").file("/etc/sysconfig/qx-scripts/101.conf", "");
  host.file("/var/lib/qx/private/101/fs/bin/sh", "", 0755);
  return host;
}

void record(const char* kind, pid_t pid) {
  const auto stat = host::readFile(host::textf("/proc/%d/stat", pid));
  host::replaceFile(host::runRecordPath(101, kind),
                    host::textf("%d %llu\n", pid, host::parseStartTime(*stat).value()), 0644);
}

/// Ends after this time, and is gone then.
class Monitor {
 public:
  explicit Monitor(std::chrono::milliseconds life) {
    pid_ = fork();
    if (pid_ == 0) {
      for (;;) pause();
    }
    record(host::kMonitorRecord, pid_);
    end_ = std::thread([pid = pid_, life] {
      std::this_thread::sleep_for(life);
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    });
  }
  ~Monitor() { end_.join(); }

 private:
  pid_t pid_ = -1;
  std::thread end_;
};

TEST(SettledInit, IsTheOneThatRunsOrNone) {
  host().run([] {
    EXPECT_FALSE(node::settledInit(101));
    EXPECT_FALSE(host::isRunning(101));
    record(host::kInitRecord, getpid());
    EXPECT_EQ(node::settledInit(101), getpid());
    EXPECT_TRUE(host::isRunning(101));
  });
}

TEST(SettledInit, WaitsForTheMonitorOfAnInitThatHasEnded) {
  host().run([] {
    const Monitor monitor(std::chrono::milliseconds(300));
    EXPECT_TRUE(host::isRunning(101)) << "it is not over yet";
    EXPECT_FALSE(node::settledInit(101));
    EXPECT_FALSE(host::isRunning(101));
  });
}

TEST(SettledInit, IsTheNextOneOfAGuestThatReboots) {
  host().run([] {
    const Monitor monitor(std::chrono::milliseconds(1500));
    std::thread next([] {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      record(host::kInitRecord, getpid());
    });
    EXPECT_EQ(node::settledInit(101), getpid());
    next.join();
  });
}

TEST(SettledInit, NamesAMonitorThatStays) {
  host().run([] {
    const Monitor monitor(std::chrono::milliseconds(1500));
    try {
      node::settledInit(101, 1);
      ADD_FAILURE() << "it did not wait, or waited for ever";
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ExitCode::kBusy);
      EXPECT_THAT(error.what(),
                  HasSubstr(host::textf("process %d", host::runningMonitor(101).value_or(0))));
    }
  });
}

TEST(SettledInit, IsAwaitedBeforeAContainerIsUnmountedOrDestroyed) {
  host().run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    {
      const Monitor monitor(std::chrono::milliseconds(300));
      node::umountContainer(container);
      EXPECT_FALSE(host::runningMonitor(101));
    }
    node::mountContainer(container);
    const Monitor monitor(std::chrono::milliseconds(300));
    node::destroyContainer(container);
    EXPECT_FALSE(host::runningMonitor(101));
    EXPECT_THAT(host::listDirectory("/run/qx"), testing::IsEmpty()) << "nothing is kept of it";
  });
}

}  // namespace
