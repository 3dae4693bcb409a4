// What is kept of a container's run, and for how long.

#include "node/run_record.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/scratch_host.h"

namespace {

test_support::ScratchHost hostWithARun() {
  test_support::ScratchHost host;
  host.file("/run/qx/101.init", "7 1\n");
  host.file("/run/qx/101.monitor", "6 1\n");
  host.file("/run/qx/lxc/qx-101/config", "");
  host.file("/run/qx/lxc/qx-101/apparmor/profile", "");
  return host;
}

TEST(RunRecord, OfAStoppedContainerOnlyTheProfileStays) {
  hostWithARun().run([] {
    node::forgetRun(101);
    EXPECT_FALSE(std::filesystem::exists("/run/qx/101.init"));
    EXPECT_FALSE(std::filesystem::exists("/run/qx/101.monitor"));
    EXPECT_FALSE(std::filesystem::exists("/run/qx/lxc/qx-101/config"));
    EXPECT_TRUE(std::filesystem::exists("/run/qx/lxc/qx-101/apparmor/profile"));
    node::forgetRun(102);
  });
}

TEST(RunRecord, OfADestroyedContainerNothingStays) {
  hostWithARun().run([] {
    node::forgetContainer(101);
    EXPECT_FALSE(std::filesystem::exists("/run/qx/101.init"));
    EXPECT_FALSE(std::filesystem::exists("/run/qx/lxc/qx-101"));
  });
}

}  // namespace
