#include "node/left_groups.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"
#include "node/cgroups.h"
#include "node/host.h"

namespace {

using host::Error;
using host::ExitCode;
using host::textf;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(GroupPlaces, AreBesideTheGroupOfTheFirstProcess) {
  node::CgroupLayout layout;
  layout.v1 = {
      {"rw", "/c/any"}, {"cpu", "/c/cpu"}, {"cpuacct", "/c/cpu"}, {"name=systemd", "/c/sd"}};
  layout.v2Mount = "/c/unified";
  const node::GroupPlaces places = node::groupPlaces(
      layout, "5:cpu,cpuacct:/\n4:net_cls:/\n1:name=systemd:/init.scope\n0::/pod/init.scope\n",
      101);
  EXPECT_THAT(places.limits, ElementsAre("/c/cpu/lxc.payload.qx-101", "/c/sd/lxc.payload.qx-101",
                                         "/c/unified/pod/lxc.payload.qx-101"));
  EXPECT_THAT(places.monitor, ElementsAre("/c/cpu/lxc.monitor.qx-101", "/c/sd/lxc.monitor.qx-101",
                                          "/c/unified/pod/lxc.monitor.qx-101"));
}

/// A real group of a hierarchy of this machine, with a process in a group below it.
class LeftGroup : public testing::Test {
 protected:
  void SetUp() override {
    const node::GroupPlaces places =
        node::groupPlaces(node::readCgroupLayout(), host::readFile("/proc/1/cgroup").value_or(""),
                          2000000000u + static_cast<unsigned>(getpid() % 100000));
    ASSERT_FALSE(places.limits.empty());
    group_ = places.limits.back();
    ASSERT_EQ(mkdir(group_.c_str(), 0755), 0) << group_ << ": " << strerror(errno);
    ASSERT_EQ(mkdir((group_ + "/guest").c_str(), 0755), 0);
    pid_ = fork();
    if (pid_ == 0) {
      for (;;) pause();
    }
    FILE* const file = fopen((group_ + "/guest/cgroup.procs").c_str(), "w");
    ASSERT_NE(file, nullptr);
    fprintf(file, "%d\n", pid_);
    ASSERT_EQ(fclose(file), 0);
  }
  void TearDown() override {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    node::clearGroup(group_, false, 5);
  }
  std::string group_;
  pid_t pid_ = -1;
};

TEST_F(LeftGroup, GoesWithTheProcessInIt) {
  // Who is in there is a child of this process: it ends only when it is waited for.
  signal(SIGCHLD, SIG_IGN);
  node::clearGroup(group_, true, 5);
  signal(SIGCHLD, SIG_DFL);
  EXPECT_FALSE(host::exists(group_));
  EXPECT_NE(kill(pid_, 0), 0);
}

TEST_F(LeftGroup, IsWaitedForAndItsProcessNamed) {
  try {
    node::clearGroup(group_, false, 0);
    FAIL() << "removed a group with a process";
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), ExitCode::kBusy);
    EXPECT_THAT(error.what(), HasSubstr(group_));
    EXPECT_THAT(error.what(), HasSubstr(textf("process %d is in it", pid_)));
  }
  EXPECT_EQ(kill(pid_, 0), 0);
}

TEST(ClearGroup, OfNoneIsDone) { node::clearGroup("/sys/fs/cgroup/no-such-group", true, 0); }

}  // namespace
