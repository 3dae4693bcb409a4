#include "node/lxc_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "host/error.h"
#include "host/file.h"

namespace {

using testing::Contains;
using testing::Not;
using testing::Pair;

namespace fs = std::filesystem;

class LxcConfig : public testing::Test {
 protected:
  LxcConfig() {
    char name[] = "/tmp/qx-lxc-config.XXXXXX";
    place_ = mkdtemp(name);
    container_.id = 101;
    container_.root = "/var/lib/qx/root/101";
    container_.privateArea = place_;
    fs::create_directories(place_ + "/fs/sbin");
    fs::create_directories(place_ + "/fs/lib/systemd");
  }
  ~LxcConfig() override { fs::remove_all(place_); }

  void initIs(const std::string& program) {
    host::replaceFile(place_ + "/fs" + program, "", 0755);
    fs::create_symlink(program, place_ + "/fs/sbin/init");
  }
  node::LxcItems items(const node::HostFacts& facts = {}) const {
    return node::lxcItems(container_, facts);
  }
  static long positionOf(const node::LxcItems& items, const std::string& key) {
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&](const auto& item) { return item.first == key; });
    return found == items.end() ? -1 : found - items.begin();
  }

  std::string place_;
  host::Container container_;
};

TEST_F(LxcConfig, EverythingTheConfigurationSays) {
  initIs("/lib/systemd/systemd");
  container_.vars = {{"HOSTNAME", "web.example.org"},
                     {"NETIF", "ifname=eth0,mac=02:00:00:00:00:01,ip=192.0.2.7/24"},
                     {"BRIDGE", "br7"},
                     {"NUMPROC", "300:300"}};
  node::HostFacts facts;
  facts.cgroups.v1 = {{"pids", ""}};
  facts.qxctl = "/usr/sbin/qxctl";
  const node::LxcItems found = items(facts);
  for (const auto& [key, value] : node::LxcItems{{"lxc.rootfs.path", "dir:/var/lib/qx/root/101"},
                                                 {"lxc.uts.name", "web"},
                                                 {"lxc.signal.halt", "SIGRTMIN+3"},
                                                 {"lxc.hook.start-host", "/usr/sbin/qxctl hook"},
                                                 {"lxc.hook.post-stop", "/usr/sbin/qxctl hook"},
                                                 {"lxc.net.0.type", "veth"},
                                                 {"lxc.net.0.link", "br7"},
                                                 {"lxc.net.0.name", "eth0"},
                                                 {"lxc.net.0.veth.pair", "qx101.0"},
                                                 {"lxc.net.0.hwaddr", "02:00:00:00:00:01"},
                                                 {"lxc.cgroup.pids.max", "300"}}) {
    EXPECT_THAT(found, Contains(Pair(key, value)));
  }
  EXPECT_THAT(found, Not(Contains(Pair("lxc.net.0.ipv4.address", testing::_))))
      << "the guest sets its addresses";
}

TEST_F(LxcConfig, SecurityDefaultsComeBeforeWhatChangesThem) {
  const node::LxcItems found = items();
  EXPECT_EQ(found.front(), std::make_pair(std::string("lxc.include"),
                                          std::string("/usr/share/lxc/config/common.conf")));
  EXPECT_LT(positionOf(found, "lxc.include"), positionOf(found, "lxc.mount.auto"));
  EXPECT_THAT(found, Contains(Pair("lxc.mount.auto", "proc:mixed sys:mixed")));
  EXPECT_EQ(positionOf(found, "lxc.apparmor.profile"), -1);
  node::HostFacts facts;
  facts.appArmor = true;
  EXPECT_THAT(items(facts), Contains(Pair("lxc.apparmor.profile", "generated")));
}

TEST_F(LxcConfig, LimitsLieOnAGroupThatTheGuestDoesNotSee) {
  const node::LxcItems found = items();
  EXPECT_THAT(found, Contains(Pair("lxc.cgroup.dir.container", "lxc.payload.qx-101")));
  EXPECT_THAT(found, Contains(Pair("lxc.cgroup.dir.container.inner", "guest")));
  EXPECT_THAT(found, Contains(Pair("lxc.cgroup.dir.monitor", "lxc.monitor.qx-101")));
}

TEST_F(LxcConfig, IsAFileOfLinesAndRefusesWhatNoLineHolds) {
  EXPECT_EQ(node::lxcConfigText({{"lxc.mount.auto", ""}, {"lxc.rootfs.path", "dir:/a b=c # d"}}),
            "lxc.mount.auto = \nlxc.rootfs.path = dir:/a b=c # d\n");
  for (const char* value : {"a\nlxc.hook.stop = /x", " a", "a ", "\"a\"", "'a'", "a\rb"}) {
    try {
      node::lxcConfigText({{"lxc.uts.name", value}});
      ADD_FAILURE() << value << " was accepted";
    } catch (const host::Error& error) {
      EXPECT_EQ(error.code(), host::ExitCode::kBadConfig);
      EXPECT_THAT(error.what(), testing::HasSubstr("lxc.uts.name"));
    }
  }
}

TEST_F(LxcConfig, QuotaToolsInsideFindTheDeviceOfAnImage) {
  container_.vars = {{"UNPRIVILEGED", "no"}};
  node::HostFacts facts;
  EXPECT_THAT(items(facts), Not(Contains(Pair("lxc.mount.entry", testing::_))));
  facts.device = "/dev/loop3";
  EXPECT_THAT(
      items(facts),
      Contains(Pair("lxc.mount.entry", "/dev/loop3 dev/loop3 none bind,create=file,optional 0 0")));
  container_.vars = {{"UNPRIVILEGED", "yes"}};
  EXPECT_THAT(items(facts), Not(Contains(Pair("lxc.mount.entry", testing::_))))
      << "its root may not ask for quotas anyway";
}

TEST_F(LxcConfig, OnlyRootOfAUserNamespaceMayNestContainers) {
  container_.vars = {{"UNPRIVILEGED", "no"}};
  node::HostFacts facts;
  facts.appArmor = true;
  EXPECT_THAT(items(facts), Not(Contains(Pair("lxc.apparmor.allow_nesting", testing::_))));
  EXPECT_THAT(items(facts), Contains(Pair("lxc.apparmor.raw", "mount,")));
  EXPECT_THAT(items(facts), Contains(Pair("lxc.seccomp.profile", "/run/qx/lxc/qx-101/seccomp")));
  container_.vars = {{"UNPRIVILEGED", "yes"}};
  EXPECT_THAT(items(facts), Contains(Pair("lxc.apparmor.allow_nesting", "1")));
  EXPECT_THAT(items(facts), Not(Contains(Pair("lxc.apparmor.raw", testing::_))));
}

TEST_F(LxcConfig, WhatIsWrittenToTheConsoleIsKeptAndLimited) {
  for (const auto& [key, value] :
       node::LxcItems{{"lxc.console.logfile", "/run/qx/lxc/qx-101/console"},
                      {"lxc.console.size", "256KB"},
                      {"lxc.console.rotate", "1"}}) {
    EXPECT_THAT(items(), Contains(Pair(key, value)));
  }
}

TEST_F(LxcConfig, WithoutAddressesTheNetworkIsEmptyButItsOwn) {
  EXPECT_THAT(items(), Contains(Pair("lxc.net.0.type", "empty")));
}

TEST_F(LxcConfig, EachInitIsStoppedInItsWay) {
  EXPECT_EQ(node::haltSignal(container_), "") << "a tree without init";
  fs::create_directories(place_ + "/fs/bin");
  initIs("/bin/busybox");
  EXPECT_EQ(node::haltSignal(container_), "SIGUSR2");
  fs::remove(place_ + "/fs/sbin/init");
  host::replaceFile(place_ + "/fs/sbin/init", "", 0755);
  EXPECT_EQ(node::haltSignal(container_), "") << "an init that is asked by a program";
}

}  // namespace
