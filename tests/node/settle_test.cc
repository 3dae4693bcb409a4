#include "node/settle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "node/engine.h"
#include "node/error.h"
#include "node/file.h"
#include "node/state.h"
#include "node/text.h"
#include "support/scratch_host.h"

namespace {

using node::Error;
using node::ExitCode;
using test_support::ScratchHost;
using testing::HasSubstr;

ScratchHost host() {
  ScratchHost host;
  host.dir("/run/qx").file("/etc/sysconfig/qx-scripts/101.conf", "");
  host.file("/var/lib/qx/private/101/fs/bin/sh", "", 0755);
  return host;
}

void record(const char* kind, pid_t pid) {
  const auto stat = node::readFile(node::textf("/proc/%d/stat", pid));
  node::replaceFile(node::runRecordPath(101, kind),
                    node::textf("%d %llu\n", pid, node::parseStartTime(*stat).value()), 0644);
}

/// Ends after this time, and is gone then.
class Monitor {
 public:
  explicit Monitor(std::chrono::milliseconds life) {
    pid_ = fork();
    if (pid_ == 0) {
      for (;;) pause();
    }
    record(node::kMonitorRecord, pid_);
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
    EXPECT_FALSE(node::isRunning(101));
    record(node::kInitRecord, getpid());
    EXPECT_EQ(node::settledInit(101), getpid());
    EXPECT_TRUE(node::isRunning(101));
  });
}

TEST(SettledInit, WaitsForTheMonitorOfAnInitThatHasEnded) {
  host().run([] {
    const Monitor monitor(std::chrono::milliseconds(300));
    EXPECT_TRUE(node::isRunning(101)) << "it is not over yet";
    EXPECT_FALSE(node::settledInit(101));
    EXPECT_FALSE(node::isRunning(101));
  });
}

TEST(SettledInit, IsTheNextOneOfAGuestThatReboots) {
  host().run([] {
    const Monitor monitor(std::chrono::milliseconds(1500));
    std::thread next([] {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      record(node::kInitRecord, getpid());
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
                  HasSubstr(node::textf("process %d", node::runningMonitor(101).value_or(0))));
    }
  });
}

TEST(SettledInit, IsAwaitedBeforeAContainerIsUnmountedOrDestroyed) {
  host().run([] {
    const node::Container container = node::loadContainer(101);
    node::mountContainer(container);
    {
      const Monitor monitor(std::chrono::milliseconds(300));
      node::umountContainer(container);
      EXPECT_FALSE(node::runningMonitor(101));
    }
    node::mountContainer(container);
    const Monitor monitor(std::chrono::milliseconds(300));
    node::destroyContainer(container);
    EXPECT_FALSE(node::runningMonitor(101));
    EXPECT_THAT(node::listDirectory("/run/qx"), testing::IsEmpty()) << "nothing is kept of it";
  });
}

}  // namespace
