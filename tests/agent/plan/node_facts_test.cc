// What a plan is told of the container host, on a host of the test's own.

#include "agent/plan/node_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "agent/programs/migrate_options.h"
#include "host/host_security.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::Pair;

constexpr char scripts[] = "/etc/sysconfig/qx-scripts/";

std::string conf(const std::string& name) { return scripts + name + ".conf"; }
std::string dist(const std::string& name) { return conf("dists/" + name); }

// Of container 101, with this configuration beside what the host has.
agent::NodeFacts factsWith(const std::string& config = "", const std::string& distribution = "") {
  agent::MigrateOptions options;
  options.ctid = 101;
  options.measuredConfig = config;
  options.distribution = distribution;
  options.distributionRequired = false;
  return agent::nodeFacts(*agent::makeParams(options));
}

std::string scriptOf(const std::string& distribution) {
  return factsWith("", distribution).distributionScript;
}

void write(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << text;
}

TEST(NodeFacts, OfAHostWithNothing) {
  ScratchHost().run([] {
    const agent::NodeFacts facts = factsWith();
    EXPECT_FALSE(facts.containerExists);
    EXPECT_FALSE(facts.configExists);
    EXPECT_FALSE(facts.areaExists);
    EXPECT_FALSE(facts.keptExists);
    EXPECT_EQ(facts.lockHolder, "");
    EXPECT_EQ(facts.privateArea, "/var/lib/qx/private/101");
    EXPECT_EQ(facts.distributionScript, "");
    EXPECT_FALSE(facts.distributionScriptExists);
    EXPECT_THAT(facts.distributions, IsEmpty());
    // Not all kernels can map the owners of the scratch host's tmpfs.
    EXPECT_TRUE(facts.ids == 65536 || facts.ids == 0);
    EXPECT_NE(facts.whyIds, "");
    EXPECT_EQ(facts.storage, "directory");
  });
}

TEST(NodeFacts, AVersionWithoutADigitIsAVersion) {
  ScratchHost().run([] {
    write(dist("fedora"), "[GLOBAL]\nPOST_MIGRATE=fedora.sh\n");
    write(dist("opensuse"), "[GLOBAL]\nPOST_MIGRATE=wrong.sh\n");
    write(dist("opensuse-tumbleweed"), "[GLOBAL]\nPOST_MIGRATE=right.sh\n");
    EXPECT_THAT(scriptOf("fedora-rawhide"), testing::EndsWith("/fedora.sh"));
    EXPECT_THAT(scriptOf("opensuse-tumbleweed"), testing::EndsWith("/right.sh"));
  });
}

TEST(NodeFacts, TheReserveIsAShareOfTheWholeDisk) {
  ScratchHost().run([] {
    const agent::NodeFacts usual = factsWith();
    EXPECT_GT(usual.reservedBytes, 0);
    write("/etc/qx/qx.conf", "RESERVE=10\n");
    const agent::NodeFacts more = factsWith();
    EXPECT_NEAR(static_cast<double>(more.reservedBytes),
                2 * static_cast<double>(usual.reservedBytes), 8192);
    write("/etc/qx/qx.conf", "RESERVE=0\n");
    EXPECT_EQ(factsWith().reservedBytes, 0);
  });
}

TEST(NodeFacts, ABrokenFileOfSettingsIsAnError) {
  ScratchHost().file("/etc/qx/qx.conf", "LOCKDIR /locks\n").run([] {
    EXPECT_THROW(factsWith(), std::runtime_error);
  });
}

TEST(NodeFacts, AContainerIsItsConfigurationAndItsArea) {
  ScratchHost().run([] {
    write(conf("101"), "HOSTNAME=\"web\"\n");
    EXPECT_TRUE(factsWith().configExists);
    EXPECT_FALSE(factsWith().containerExists);
    write("/var/lib/qx/private/101/fs/etc/hostname", "web\n");
    EXPECT_TRUE(factsWith().areaExists);
    EXPECT_TRUE(factsWith().containerExists);
    std::filesystem::remove(conf("101"));
    EXPECT_FALSE(factsWith().containerExists);
    std::filesystem::rename("/var/lib/qx/private/101", "/var/lib/qx/private/101.migrated");
    EXPECT_FALSE(factsWith().areaExists);
    EXPECT_TRUE(factsWith().keptExists);
  });
}

TEST(NodeFacts, AnAreaOnWhatIsNotMountedIsAProblem) {
  ScratchHost().file("/etc/fstab", "LABEL=qx /var/lib/qx ext4 defaults 0 2\n").run([] {
    EXPECT_EQ(factsWith().placeProblem,
              "the private area /var/lib/qx/private/101 is on /var/lib/qx, which is not mounted: "
              "'mount /var/lib/qx'");
  });
  ScratchHost().file("/etc/fstab", "LABEL=home /home ext4 defaults 0 2\n").run([] {
    EXPECT_EQ(factsWith().placeProblem, "");
  });
}

TEST(NodeFacts, ALockCountsWhileItsProcessLives) {
  ScratchHost().file("/etc/qx/qx.conf", "LOCKDIR=/locks\n").run([] {
    write("/locks/101.lck", std::to_string(getpid()) + "\nmigrating\n");
    EXPECT_EQ(factsWith().lockHolder, "process " + std::to_string(getpid()) + " (migrating)");
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    waitpid(ended, nullptr, 0);
    write("/locks/101.lck", std::to_string(ended) + "\nmigrating\n");
    EXPECT_EQ(factsWith().lockHolder, "");
    write("/locks/101.lck", "nobody\n");
    EXPECT_EQ(factsWith().lockHolder, "");
    write("/locks/102.lck", std::to_string(getpid()) + "\n");
    EXPECT_EQ(factsWith().lockHolder, "");
  });
}

TEST(NodeFacts, ThePrivateAreaIsTheContainersElseTheHosts) {
  ScratchHost().file("/etc/qx/qx.conf", "VE_PRIVATE=\"/big/$VEID\"\n").run([] {
    EXPECT_EQ(factsWith().privateArea, "/big/101");
    EXPECT_EQ(factsWith("VE_PRIVATE=\"/own/$VEID/x\"\n").privateArea, "/own/101/x");
  });
}

TEST(NodeFacts, SpaceIsThatOfTheFileSystemWhichWillHoldTheArea) {
  ScratchHost().dir("/var/lib").run([] {
    // More in use than the figures below may differ by.
    write("/var/lib/large", std::string(4 << 20, 'x'));
    for (int i = 0; i < 300; ++i) write("/var/lib/many/" + std::to_string(i), "");
    struct statvfs figures;
    ASSERT_EQ(statvfs("/var/lib", &figures), 0);
    ASSERT_NE(figures.f_files, 0u);
    const agent::NodeFacts facts = factsWith();
    EXPECT_NEAR(static_cast<double>(facts.freeBytes),
                static_cast<double>(figures.f_bavail) * static_cast<double>(figures.f_frsize), 1e6);
    EXPECT_NEAR(static_cast<double>(facts.freeInodes), static_cast<double>(figures.f_favail), 100);
    // It has neither.
    EXPECT_EQ(factsWith("VE_PRIVATE=\"/proc/x/$VEID\"\n").freeBytes, 0);
    EXPECT_EQ(factsWith("VE_PRIVATE=\"/proc/x/$VEID\"\n").freeInodes, -1);
  });
}

TEST(NodeFacts, AddressesAreThoseOfTheHostAndOfOtherContainers) {
  ScratchHost host;
  host.file(conf("102"), "IP_ADDRESS=\"192.0.2.5 fd00::5\"\n");
  host.file(conf("103"), "NETIF=\"ifname=eth0,ip=192.0.2.7/24,ip=dhcp\"\n");
  host.file(conf("101"), "IP_ADDRESS=\"192.0.2.9\"\n");
  host.file(conf("104"), "this is no configuration\n");
  host.run([] {
    const agent::NodeFacts facts = factsWith();
    EXPECT_THAT(facts.addressProblems, ElementsAre(testing::HasSubstr("104.conf: line 1: ")));
    const auto& addresses = facts.addresses;
    EXPECT_THAT(addresses, Contains(Pair("127.0.0.1", "this host")));
    EXPECT_THAT(addresses, Contains(Pair("192.0.2.5", "container 102")));
    EXPECT_THAT(addresses, Contains(Pair("fd00::5", "container 102")));
    EXPECT_THAT(addresses, Contains(Pair("192.0.2.7", "container 103")));
    EXPECT_THAT(addresses, Not(Contains(Key("192.0.2.9"))));
    EXPECT_THAT(addresses, Not(Contains(Key("dhcp"))));
  });
}

TEST(NodeFacts, TheScriptIsThatOfTheVersionElseOfTheName) {
  ScratchHost host;
  host.file(dist("debian"), "[GLOBAL]\nPOST_MIGRATE=debian.sh\n");
  host.file(dist("debian-12"), "[GLOBAL]\nPOST_MIGRATE=twelve.sh\n");
  host.file("/etc/sysconfig/qx-scripts/dists/scripts/debian.sh", "");
  host.run([] {
    EXPECT_EQ(scriptOf("debian-12"), "/etc/sysconfig/qx-scripts/dists/scripts/twelve.sh");
    EXPECT_FALSE(factsWith("", "debian-12").distributionScriptExists);
    EXPECT_EQ(scriptOf("debian-11"), "/etc/sysconfig/qx-scripts/dists/scripts/debian.sh");
    EXPECT_TRUE(factsWith("", "debian-11").distributionScriptExists);
    EXPECT_EQ(scriptOf("debian"), "/etc/sysconfig/qx-scripts/dists/scripts/debian.sh");
    EXPECT_EQ(scriptOf("fedora-40"), "");
    EXPECT_EQ(factsWith("", "fedora-40").distributionFile, dist("fedora"));
    EXPECT_THAT(factsWith().distributions, ElementsAre("debian", "debian-12"));
  });
}

// As the migration reads the same files.
TEST(NodeFacts, TheTableIsReadAsTheMigrationReadsIt) {
  ScratchHost host;
  host.file(dist("before"), "POST_MIGRATE=a.sh\n");
  host.file(dist("spaced"), "# a comment\n[ GLOBAL ]\n  POST_MIGRATE : b.sh\n");
  host.file(dist("other"), "[OTHER]\nPOST_MIGRATE=c.sh\n");
  host.file(dist("longer"), "[GLOBAL]\nPOST_MIGRATES=d.sh\n");
  host.file(dist("empty"), "[GLOBAL]\nPOST_MIGRATE=\n");
  host.run([] {
    EXPECT_EQ(scriptOf("before-1"), "/etc/sysconfig/qx-scripts/dists/scripts/a.sh");
    EXPECT_EQ(scriptOf("spaced-1"), "/etc/sysconfig/qx-scripts/dists/scripts/b.sh");
    EXPECT_EQ(scriptOf("other-1"), "");
    EXPECT_EQ(scriptOf("longer-1"), "");
    EXPECT_EQ(scriptOf("empty-1"), "");
    EXPECT_EQ(scriptOf(".before-1"), "/etc/sysconfig/qx-scripts/dists/scripts/a.sh");
  });
}

TEST(NodeFacts, AnUnprivilegedContainerHasFewerIds) {
  ScratchHost().run([] {
    EXPECT_EQ(factsWith("UNPRIVILEGED=\"no\"\n").ids, 0);
    EXPECT_EQ(factsWith("UNPRIVILEGED=\"yes\"\n").ids, 65536);
    EXPECT_EQ(factsWith("UNPRIVILEGED=\"yes\"\nUNPRIVILEGED_IDS=\"200000:300000\"\n").ids, 300000);
    write("/etc/qx/qx.conf", "UNPRIVILEGED=yes\nSTORAGE=ext4\n");
    EXPECT_EQ(factsWith().ids, 65536);
    EXPECT_EQ(factsWith("UNPRIVILEGED=\"no\"\n").ids, 0);
    EXPECT_EQ(factsWith().storage, "ext4");
    EXPECT_EQ(factsWith("STORAGE=\"btrfs\"\n").storage, "btrfs");
    EXPECT_FALSE(factsWith().quotasOff);
    EXPECT_FALSE(factsWith().hasGateway);
    EXPECT_TRUE(factsWith("GATEWAY=\"192.0.2.254\"\n").hasGateway);
    write("/etc/qx/qx.conf", "DISK_QUOTA=no\nGATEWAY=192.0.2.254\n");
    EXPECT_TRUE(factsWith().hasGateway);
    EXPECT_TRUE(factsWith().quotasOff);
  });
}

TEST(NodeFacts, WeaknessesOfTheNodeAreThoseThatItsToolsTell) {
  ScratchHost().file("/proc/self/mountinfo", "").run([] {
    EXPECT_EQ(factsWith().weaknesses, host::hostWarnings(host::readHostSecurity()));
    EXPECT_FALSE(factsWith().weaknesses.empty()) << "a scratch host has no AppArmor";
  });
}

void expectGenerations(const std::string& mounts, bool first, bool second) {
  ScratchHost().file("/proc/self/mountinfo", mounts).run([&] {
    EXPECT_EQ(factsWith().cgroupV1, first) << mounts;
    EXPECT_EQ(factsWith().cgroupV2, second) << mounts;
  });
}

TEST(NodeFacts, ControlGroupsAreOfTheGenerationsThatAreMounted) {
  const std::string root = "22 1 8:1 / / rw shared:1 - ext4 /dev/sda1 rw\n";
  const std::string one = "30 22 0:30 / /sys/fs/cgroup/pids rw - cgroup cgroup rw,pids\n";
  const std::string two = "31 22 0:31 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n";
  expectGenerations(root, false, false);
  expectGenerations(root + one, true, false);
  expectGenerations(root + two, false, true);
  expectGenerations(root + one + two, true, true);
}

}  // namespace
