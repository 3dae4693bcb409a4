#include "host/place.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/error.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::HasSubstr;

std::string refusal(const std::function<void()>& action) {
  try {
    action();
  } catch (const host::Error& error) {
    EXPECT_EQ(error.code(), host::ExitCode::kBadConfig);
    return error.what();
  }
  return "not refused";
}

std::string areaRefusal(const std::string& path) {
  return refusal([&] { host::requireRootsArea(path); });
}

TEST(RequireRootsArea, TakesWhatOnlyRootCanChange) {
  ScratchHost().dir("/data/private/101/fs").run([] {
    EXPECT_EQ(areaRefusal("/data/private/101"), "not refused");
    EXPECT_EQ(areaRefusal("/data/private/102"), "not refused");
    EXPECT_EQ(areaRefusal("/missing/private/102"), "not refused");
  });
}

TEST(RequireRootsArea, RefusesLinksOnTheWayAndAtItsEnd) {
  ScratchHost host;
  host.dir("/data/private").dir("/etc").symlink("/data/link", "private");
  host.symlink("/data/private/101", "/etc");
  host.run([] {
    EXPECT_EQ(areaRefusal("/data/link/102"),
              "VE_PRIVATE is '/data/link/102': '/data/link' is a symbolic link: name the place "
              "that it leads to");
    EXPECT_THAT(areaRefusal("/data/private/101"), HasSubstr("symbolic link"));
  });
}

TEST(RequireRootsArea, RefusesWhatOthersOwnOrCanWriteTo) {
  ScratchHost().dir("/home/user").dir("/shared", 0777).dir("/data/private/101").run([] {
    ASSERT_EQ(chown("/home/user", 1000, 1000), 0);
    ASSERT_EQ(chmod("/shared", 01777), 0);
    EXPECT_EQ(areaRefusal("/home/user/101"),
              "VE_PRIVATE is '/home/user/101': '/home/user' belongs to user 1000, and must be "
              "root's");
    EXPECT_EQ(areaRefusal("/shared/101"),
              "VE_PRIVATE is '/shared/101': others than root can write to '/shared'");
    ASSERT_EQ(chmod("/data/private/101", 0777), 0);
    EXPECT_THAT(areaRefusal("/data/private/101"), HasSubstr("others than root can write"));
  });
}

// A guest whose container is no longer configured has made "x".
TEST(RequireRootsArea, RefusesWhatLiesInAPrivateArea) {
  ScratchHost().file("/data/180/.qx-registered", "").dir("/data/180/fs/x").run([] {
    EXPECT_EQ(areaRefusal("/data/180/fs/x"),
              "VE_PRIVATE is '/data/180/fs/x': it lies in '/data/180', which is a private area "
              "itself");
    EXPECT_EQ(areaRefusal("/data/180"), "not refused");
  });
}

TEST(RequireOwnPlaces, RefusesThoseOfAnotherContainer) {
  const char* const rows[][2] = {
      {"VE_PRIVATE=/var/lib/qx/private/101\n",
       "VE_PRIVATE is '/var/lib/qx/private/101': "
       "'/var/lib/qx/private/101' is container 101's"},
      {"VE_PRIVATE=/var/lib/qx/private/101/fs/x\n", "'/var/lib/qx/private/101' is container 101's"},
      {"VE_ROOT=/var/lib/qx/root/101/etc\n",
       "VE_ROOT is '/var/lib/qx/root/101/etc': "
       "'/var/lib/qx/root/101' is container 101's"},
      {"VE_ROOT=/data\n", "VE_ROOT is '/data': '/data/103' of container 103 lies in it"},
      {"VE_ROOT=/run/udev/rules.d\n",
       "VE_ROOT is '/run/udev/rules.d': this is a place of the host's system"},
      {"", "not refused"},
  };
  for (const auto& [config, expected] : rows) {
    ScratchHost host;
    host.file("/etc/sysconfig/qx-scripts/101.conf", "");
    host.file("/etc/sysconfig/qx-scripts/102.conf", config);
    host.file("/etc/sysconfig/qx-scripts/103.conf", "VE_PRIVATE=/data/103\n");
    host.file("/etc/sysconfig/qx-scripts/104.conf", "malformed\n");
    host.run([&] {
      EXPECT_THAT(refusal([] { host::requireOwnPlaces(host::findContainer(102)); }),
                  HasSubstr(expected));
    });
  }
}

// Its owner and mode are the guest's to choose: that must not keep it from being stopped.
TEST(RequireOwnPlaces, WhatTheGuestMakesOfItsRootIsNoObstacle) {
  ScratchHost().file("/etc/sysconfig/qx-scripts/101.conf", "").dir("/var/lib/qx/root/101").run([] {
    ASSERT_EQ(chmod("/var/lib/qx/root/101", 0777), 0);
    ASSERT_EQ(chown("/var/lib/qx/root/101", 5, 5), 0);
    host::requireOwnPlaces(host::findContainer(101));
  });
}

}  // namespace
