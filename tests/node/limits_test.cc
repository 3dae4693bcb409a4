#include "node/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/file.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;

constexpr char kFirst[] =
    "12:pids:/lxc.payload.qx-101/guest\n"
    "5:cpu,cpuacct:/lxc.payload.qx-101/guest/system.slice\n"
    "1:name=systemd:/lxc.payload.qx-101/guest/init.scope\n"
    "0::/\n";
constexpr char kSecond[] = "0::/machine/lxc.payload.qx-101/guest/init.scope\n";

TEST(LimitGroup, IsAboveTheOneThatTheGuestSees) {
  EXPECT_EQ(node::limitGroupOf(kFirst, "pids", 101), "/lxc.payload.qx-101");
  EXPECT_EQ(node::limitGroupOf(kFirst, "cpu", 101), "/lxc.payload.qx-101");
  EXPECT_EQ(node::limitGroupOf(kFirst, "cpuacct", 101), "/lxc.payload.qx-101");
  EXPECT_EQ(node::limitGroupOf(kSecond, "", 101), "/machine/lxc.payload.qx-101");
}

TEST(LimitGroup, OfAnotherContainerOrControllerIsNone) {
  EXPECT_FALSE(node::limitGroupOf(kFirst, "pids", 10));
  EXPECT_FALSE(node::limitGroupOf(kFirst, "pid", 101));
  EXPECT_FALSE(node::limitGroupOf(kFirst, "", 101)) << "a group of the second generation";
  EXPECT_FALSE(node::limitGroupOf("", "pids", 101));
  EXPECT_FALSE(node::limitGroupOf("nonsense\n4:pids\n", "pids", 101));
}

class LimitFiles : public testing::Test {
 protected:
  /// A host on which process 7 is the init of container 101.
  static ScratchHost host() {
    ScratchHost host;
    host.file("/groups/pids/lxc.payload.qx-101/pids.max", "300\n");
    host.file("/groups/unified/lxc.payload.qx-101/memory.max", "max\n");
    return host;
  }
  static node::CgroupLayout layout() {
    node::CgroupLayout layout;
    layout.v1 = {{"pids", "/groups/pids"}};
    layout.v2Mount = "/groups/unified";
    layout.v2 = {"memory"};
    return layout;
  }
};

TEST_F(LimitFiles, AreReadAndWrittenInTheGenerationThatHasThem) {
  // The groups of this process, whatever they are, are replaced by the container's.
  host()
      .file("/proc/1/cgroup", "3:pids:/lxc.payload.qx-101/guest\n0::/lxc.payload.qx-101/guest\n")
      .run([] {
        const node::Limit tasks{"NUMPROC", "lxc.cgroup.pids.max", "500"};
        const node::Limit memory{"SLMMEMORYLIMIT", "lxc.cgroup2.memory.max", "8192"};
        const node::Limit ptys{"NUMPTY", "lxc.pty.max", "7"};
        EXPECT_EQ(node::heldLimit(layout(), 101, 1, tasks), "300");
        EXPECT_EQ(node::heldLimit(layout(), 101, 1, memory), "max");
        EXPECT_FALSE(node::heldLimit(layout(), 101, 1, ptys));
        EXPECT_TRUE(node::setLimit(layout(), 101, 1, tasks));
        EXPECT_TRUE(node::setLimit(layout(), 101, 1, memory));
        EXPECT_TRUE(node::setLimit(layout(), 101, 1, ptys)) << "it counts at start";
        EXPECT_THAT(host::readFile("/groups/pids/lxc.payload.qx-101/pids.max").value(),
                    testing::StartsWith("500"));
        EXPECT_THAT(host::readFile("/groups/unified/lxc.payload.qx-101/memory.max").value(),
                    testing::StartsWith("8192"));
        EXPECT_FALSE(node::setLimit(layout(), 102, 1, tasks)) << "no such container";
        EXPECT_FALSE(node::setLimit(layout(), 101, 1, {"CPUUNITS", "lxc.cgroup2.cpu.weight", "1"}))
            << "no such file";
      });
}

TEST(HeldLimit, IsTheWantedOneAlsoInThePagesThatTheKernelCounts) {
  const node::Limit memory{"SLMMEMORYLIMIT", "lxc.cgroup2.memory.max", "10000"};
  EXPECT_TRUE(node::isHeld(memory, "8192"));
  EXPECT_FALSE(node::isHeld(memory, "4096"));
  EXPECT_FALSE(node::isHeld(memory, "12288"));
  EXPECT_FALSE(node::isHeld(memory, "max"));
  EXPECT_TRUE(node::isHeld({"NUMPROC", "lxc.cgroup2.pids.max", "max"}, "max"));
  EXPECT_FALSE(node::isHeld({"NUMPROC", "lxc.cgroup2.pids.max", "300"}, "299"));
  EXPECT_TRUE(node::isHeld({"SLMMEMORYLIMIT", "lxc.cgroup.memory.limit_in_bytes", "-1"},
                           "9223372036854771712"));
}

}  // namespace
