// What the agent knows of its host, on a host of the test's own.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "agent/programs/migrate_options.h"
#include "framework/env_manager.h"
#include "framework/errors.h"
#include "host/container.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;

QXA::QXAVtSettings settings() {
  QXA::QXAVtSettings result;
  EXPECT_EQ(QXA::QXALibFunctionality::getQXAEnvMLocal()->getVtSettings(result), 0)
      << QXL::getErrorMessage();
  return result;
}

TEST(HostSettings, HaveDefaults) {
  ScratchHost host;
  host.dir("/var/lock");
  host.run([]() {
    const QXA::QXAVtSettings result = settings();
    EXPECT_EQ(result.lockDir, "/run/qx/lock");
    EXPECT_EQ(result.defaults.at("ve_root"), "/var/lib/qx/root/$VEID");
    EXPECT_EQ(result.defaults.at("ve_private"), "/var/lib/qx/private/$VEID");
    struct stat info;
    EXPECT_EQ(stat("/run/qx/lock", &info), 0);
  });
}

TEST(HostSettings, ComeFromTheFile) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "LOCKDIR=/locks\nVE_ROOT=\"/r/$VEID\"\nVE_PRIVATE='/p'\n");
  host.run([]() {
    const QXA::QXAVtSettings result = settings();
    EXPECT_EQ(result.lockDir, "/locks");
    EXPECT_EQ(result.defaults.at("ve_root"), "/r/$VEID");
    EXPECT_EQ(result.defaults.at("ve_private"), "/p");
  });
}

TEST(HostSettings, MayReferToEachOtherAndKeepTheContainersId) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "BASE=/srv/qx\nVE_PRIVATE=$BASE/private/$VEID\n");
  host.file("/etc/sysconfig/qx-scripts/101.conf", "HOSTNAME=web\n");
  host.run([]() {
    EXPECT_EQ(settings().defaults.at("ve_private"), "/srv/qx/private/$VEID");
    EXPECT_EQ(host::findContainer(101).privateArea, "/srv/qx/private/101");
  });
}

TEST(HostSettings, AFileThatCannotBeReadIsAnError) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "LOCKDIR /locks\n");
  host.run([]() {
    QXA::QXAVtSettings result;
    EXPECT_NE(QXA::QXALibFunctionality::getQXAEnvMLocal()->getVtSettings(result), 0);
    EXPECT_EQ(QXL::getErrorMessage(),
              "/etc/qx/qx.conf: line 1: NAME=value expected instead of 'LOCKDIR /locks'");
  });
}

int assign(std::vector<QXA::QXANetVEth>& interfaces) {
  return QXL::IPAutoAllocation::Director<QXA::IPAutoAllocation::Builder>::assign(interfaces,
                                                                                 nullptr);
}

QXA::QXANetVEth interfaceWith(const std::vector<std::string>& addresses) {
  QXA::QXANetVEth interface;
  interface.name = "eth0";
  for (const std::string& address : addresses) interface.addresses.emplace_back(address);
  return interface;
}

TEST(AddressPool, GivesTheFirstFreeAddresses) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "IP_POOL=\"192.0.2.10-192.0.2.12/24 198.51.100.1\"\n");
  host.file("/etc/sysconfig/qx-scripts/5.conf", "IP_ADDRESS=\"192.0.2.10\"\n");
  host.file("/etc/sysconfig/qx-scripts/6.conf", "NETIF=\"ifname=eth0,ip=192.0.2.12/24\"\n");
  host.run([]() {
    std::vector<QXA::QXANetVEth> interfaces = {interfaceWith({"auto", "dhcp", "10.0.0.1"}),
                                               interfaceWith({"auto"})};
    ASSERT_EQ(assign(interfaces), 0) << QXL::getErrorMessage();
    EXPECT_EQ(interfaces[0].addresses[0].text, "192.0.2.11/24");
    EXPECT_EQ(interfaces[0].addresses[1].text, "dhcp");
    EXPECT_EQ(interfaces[0].addresses[2].text, "10.0.0.1");
    EXPECT_EQ(interfaces[1].addresses[0].text, "198.51.100.1");
    std::vector<QXA::QXANetVEth> more = {interfaceWith({"auto", "auto", "auto"})};
    EXPECT_NE(assign(more), 0);
    EXPECT_EQ(QXL::getErrorMessage(),
              "no address for eth0: IP_POOL '192.0.2.10-192.0.2.12/24 198.51.100.1' has none left");
  });
}

TEST(AddressPool, KnowsTheAddressesOfContainersWithQuotesInANote) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "IP_POOL=192.0.2.10-192.0.2.11\n");
  host.file("/etc/sysconfig/qx-scripts/102.conf", "IP_ADDRESS=192.0.2.10\nNOTE='it'\\''s Bob'\n");
  host.run([]() {
    std::vector<QXA::QXANetVEth> some = {interfaceWith({"auto"})};
    ASSERT_EQ(assign(some), 0) << QXL::getErrorMessage();
    EXPECT_EQ(some[0].addresses[0].text, "192.0.2.11");
  });
}

TEST(AddressPool, GivesNothingWhileAContainersAddressesAreUnknown) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "IP_POOL=192.0.2.10-192.0.2.11\n");
  host.file("/etc/sysconfig/qx-scripts/102.conf", "IP_ADDRESS=192.0.2.10\nNOTE=it's Bob\n");
  host.run([]() {
    std::vector<QXA::QXANetVEth> some = {interfaceWith({"auto"})};
    EXPECT_NE(assign(some), 0);
    EXPECT_EQ(QXL::getErrorMessage(),
              "no address for eth0: it is not known which ones are free: "
              "/etc/sysconfig/qx-scripts/102.conf: line 2: the closing ' is missing");
  });
}

TEST(AddressPool, WithoutAPoolAutoIsRefused) {
  ScratchHost host;
  host.run([]() {
    std::vector<QXA::QXANetVEth> none = {interfaceWith({"10.0.0.1"})};
    EXPECT_EQ(assign(none), 0);
    std::vector<QXA::QXANetVEth> some = {interfaceWith({"auto"})};
    EXPECT_NE(assign(some), 0);
    EXPECT_EQ(QXL::getErrorMessage(), "no address for eth0: IP_POOL is not set in /etc/qx/qx.conf");
  });
}

TEST(AddressPool, ABrokenRangeIsNamed) {
  for (const char* range : {"x", "192.0.2.9-192.0.2.1", "192.0.2.300"}) {
    ScratchHost host;
    host.file("/etc/qx/qx.conf", std::string("IP_POOL=\"") + range + "\"\n");
    host.run([range]() {
      std::vector<QXA::QXANetVEth> some = {interfaceWith({"auto"})};
      EXPECT_NE(assign(some), 0);
      EXPECT_EQ(QXL::getErrorMessage(),
                std::string("IP_POOL has no address range in '") + range + "'");
    });
  }
}

std::string makeProblem(const agent::MigrateOptions& options) {
  try {
    agent::makeParams(options);
  } catch (const std::exception& problem) {
    return problem.what();
  }
  return "";
}

TEST(MigrateOptions, TheCommandLineOverridesTheFile) {
  const test_support::TempTree tree({test_support::fileAt(
      "c.conf", "HOSTNAME=\"old\"\nDISTRIBUTION=\"debian-11\"\nONBOOT=yes\n")});
  agent::MigrateOptions options;
  options.ctid = 101;
  options.configFile = tree.path("c.conf");
  options.hostname = "web";
  options.addresses = {"192.0.2.10/24", "dhcp"};
  options.services = {"nginx"};
  options.excludes = {"/tmp/*"};
  options.keepOnFailure = true;
  const auto params = agent::makeParams(options);
  EXPECT_EQ(params->ctid, 101);
  EXPECT_TRUE(params->options.keepOnFailure);
  EXPECT_EQ(params->options.services[0].name, "nginx");
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  EXPECT_EQ(parser.format(*params->options.config),
            "DISKINODES=\"9223372036854775807:9223372036854775807\"\n"
            "DISKSPACE=\"9223372036854775807:9223372036854775807\"\n"
            "DISTRIBUTION=\"debian-11\"\n"
            "HOSTNAME=\"web\"\n"
            "IP_ADDRESS=\"192.0.2.10/24 dhcp\"\n"
            "NETIF=\"ifname=eth0,ip=192.0.2.10/24,ip=dhcp\"\n"
            "ONBOOT=\"yes\"\n");
}

TEST(MigrateOptions, AConfigurationFileMayReferToTheSettingsOfTheHost) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "BASE=/srv/qx\n");
  host.file("/tmp/c.conf", "DISTRIBUTION=debian-12\nVE_PRIVATE=$BASE/$VEID\n");
  host.file("/tmp/bad.conf", "DISTRIBUTION=debian-12\nVE_PRIVATE=$BASIS/$VEID\n");
  host.run([]() {
    agent::MigrateOptions options;
    options.ctid = 101;
    options.configFile = "/tmp/c.conf";
    std::string area;
    agent::makeParams(options)->options.config->getVEPrivate(101, area);
    EXPECT_EQ(area, "/srv/qx/101");
    options.configFile = "/tmp/bad.conf";
    EXPECT_EQ(makeProblem(options), "--config: /tmp/bad.conf: line 2: variable BASIS is not set");
  });
}

TEST(MigrateOptions, BadValuesAreNamed) {
  agent::MigrateOptions options;
  options.ctid = 101;
  EXPECT_EQ(makeProblem(options),
            "the server's distribution is not known: give --distribution NAME-VERSION");
  options.distribution = "debian-12";
  EXPECT_EQ(makeProblem(options), "");
  options.ctid = 0;
  EXPECT_EQ(makeProblem(options), "container id 0 is not between 1 and 2147483644");
  options.ctid = 101;
  options.excludes = {"relative"};
  EXPECT_EQ(makeProblem(options), "exclusion 'relative' is not an absolute path");
  options.excludes.clear();
  options.hostname = "bad name";
  EXPECT_EQ(makeProblem(options), "'bad name' is not a valid host name");
  options.hostname.clear();
  options.configFile = "/no/such/file";
  EXPECT_EQ(makeProblem(options), "--config: there is no file '/no/such/file'");
}

}  // namespace
