#include <gtest/gtest.h>

#include "framework/env_manager.h"
#include "framework/errors.h"
#include "support/temp_tree.h"

namespace {

using QXA::QXAEnvConfig;

QXA::QXAEnvConfigBashParser parser() {
  return QXA::QXAEnvConfigBashParser(QXL::QXLVocCacheLocal());
}

TEST(EnvConfig, IdsAreExpandedInPaths) {
  QXAEnvConfig config;
  std::string path;
  EXPECT_NE(config.getVERoot(101, path), 0);
  EXPECT_EQ(QXL::getErrorMessage(), "VE_ROOT is not set");
  EXPECT_NE(config.getVEPrivate(101, path), 0);
  config.setVERootVar("/vz/$VEID/root/${VEID}");
  config.setVEPrivateVar("/plain");
  EXPECT_EQ(config.getVERoot(101, path), 0);
  EXPECT_EQ(path, "/vz/101/root/101");
  EXPECT_EQ(config.getVEPrivate(101, path), 0);
  EXPECT_EQ(path, "/plain");
}

TEST(EnvConfig, HostNamesAreChecked) {
  QXAEnvConfig config;
  for (const char* good : {"a", "web-1.example.org", "1a", "host_name", "A.b"}) {
    EXPECT_EQ(config.setHostname(good), 0) << good;
  }
  for (const std::string& bad :
       {std::string(""), std::string("-a"), std::string("a-"), std::string("a..b"),
        std::string("a."), std::string("a b"), std::string("a;b"), std::string(64, 'a'),
        std::string("a-.b"), std::string(254, 'a')}) {
    EXPECT_NE(config.setHostname(bad), 0) << bad;
    EXPECT_EQ(QXL::getErrorMessage(), "'" + bad + "' is not a valid host name");
  }
}

TEST(EnvConfigFile, EveryPropertyComesBack) {
  QXAEnvConfig config;
  config.setHostname("web");
  config.setDistribution(QXA::QXADistribution{"debian", "12"});
  config.setOsTemplate(QXA::QXAOsTemplate{".debian-12"});
  config.setVERootVar("/r/$VEID");
  config.setVEPrivateVar("/p/$VEID");
  config.setSLMMode("all");
  config.setAddresses(std::vector{QXL::QXLIPAddress("192.0.2.1"), QXL::QXLIPAddress("192.0.2.2")});
  config.setNameservers(std::list<std::string>{"192.0.2.53", "192.0.2.54"});
  config.setStringListAttr({"b.example", "a.example"}, 1558);
  config.setNetVEths(std::vector{
      QXA::QXANetVEth{"eth0", "veth101", "02:00:00:00:00:01", {QXL::QXLIPAddress("192.0.2.1/24")}},
      QXA::QXANetVEth{"eth1", "", "", {QXL::QXLIPAddress("dhcp"), QXL::QXLIPAddress("auto")}}});
  QXL::QXLQoS two;
  two.name = "diskspace";
  two.barrierPresent = true;
  two.barrier = 1000;
  two.limit = 9223372036854775807LL;
  QXL::QXLQoS one;
  one.name = "cpuunits";
  one.limit = 1000;
  config.setQoSes(std::set{two, one});
  config.otherVariables["ONBOOT"] = "yes";

  const std::string text = parser().format(config);
  EXPECT_EQ(text,
            "CPUUNITS=\"1000\"\n"
            "DISKSPACE=\"1000:9223372036854775807\"\n"
            "DISTRIBUTION=\"debian-12\"\n"
            "HOSTNAME=\"web\"\n"
            "IP_ADDRESS=\"192.0.2.1 192.0.2.2\"\n"
            "NAMESERVER=\"192.0.2.53 192.0.2.54\"\n"
            "NETIF=\"ifname=eth0,host_ifname=veth101,mac=02:00:00:00:00:01,ip=192.0.2.1/24;"
            "ifname=eth1,ip=dhcp,ip=auto\"\n"
            "ONBOOT=\"yes\"\n"
            "OSTEMPLATE=\".debian-12\"\n"
            "SEARCHDOMAIN=\"a.example b.example\"\n"
            "SLMMODE=\"all\"\n"
            "VE_PRIVATE=\"/p/$VEID\"\n"
            "VE_ROOT=\"/r/$VEID\"\n");
  QXAEnvConfig again;
  ASSERT_EQ(parser().parse(text, again), 0) << QXL::getErrorMessage();
  EXPECT_EQ(parser().format(again), text);
}

TEST(EnvConfigFile, ADistributionIsCutAtTheLastDash) {
  const auto distributionOf = [](const std::string& text) {
    QXAEnvConfig config;
    EXPECT_EQ(parser().parse("DISTRIBUTION=\"" + text + "\"\n", config), 0);
    std::optional<QXA::QXADistribution> distribution;
    config.getDistribution(distribution);
    return *distribution;
  };
  EXPECT_EQ(distributionOf("debian-12"), (QXA::QXADistribution{"debian", "12"}));
  EXPECT_EQ(distributionOf("opensuse-leap-15.5"), (QXA::QXADistribution{"opensuse-leap", "15.5"}));
  EXPECT_EQ(distributionOf("debian-sid"), (QXA::QXADistribution{"debian", "sid"}));
  EXPECT_EQ(distributionOf("arch"), (QXA::QXADistribution{"arch", ""}));
  EXPECT_EQ(distributionOf("-9"), (QXA::QXADistribution{"-9", ""}));
}

TEST(EnvConfigFile, BadValuesAreNamed) {
  QXAEnvConfig config;
  EXPECT_NE(parser().parse("DISKSPACE=\"much\"\n", config), 0);
  EXPECT_EQ(QXL::getErrorMessage(),
            "DISKSPACE is neither a number nor two separated by ':': 'much'");
  EXPECT_NE(parser().parse("NUMPROC=\"-1:5\"\n", config), 0);
  EXPECT_NE(parser().parse("NETIF=\"mac=02:00:00:00:00:01\"\n", config), 0);
  EXPECT_EQ(QXL::getErrorMessage(),
            "NETIF has an interface without ifname: 'mac=02:00:00:00:00:01'");
  EXPECT_NE(parser().parse("NETIF=\"ifname=eth0,speed=1\"\n", config), 0);
  EXPECT_EQ(QXL::getErrorMessage(), "NETIF has the unknown field 'speed=1'");
  EXPECT_NE(parser().parse("HOSTNAME=\"no name\"\n", config), 0);
}

TEST(EnvConfigFile, UnlimitedIsTheLargestNumber) {
  QXAEnvConfig config;
  for (const char* text : {"unlimited", "9223372036854775807", "99999999999999999999"}) {
    ASSERT_EQ(parser().parse("PHYSPAGES=\"0:" + std::string(text) + "\"\n", config), 0);
    EXPECT_EQ(parser().format(config), "PHYSPAGES=\"0:9223372036854775807\"\n");
  }
}

TEST(EnvConfigFile, FilesAreWrittenWholeAndRead) {
  const test_support::TempTree tree;
  QXAEnvConfig config;
  config.setHostname("web");
  ASSERT_EQ(parser().write(tree.path("101.conf"), config), 0) << QXL::getErrorMessage();
  QXAEnvConfig again;
  ASSERT_EQ(parser().read(tree.path("101.conf"), again), 0);
  EXPECT_EQ(parser().format(again), "HOSTNAME=\"web\"\n");
  EXPECT_NE(parser().write(tree.path("none/101.conf"), config), 0);
  EXPECT_EQ(QXL::getErrorMessage(),
            "cannot write " + tree.path("none/101.conf") + ": No such file or directory");
  EXPECT_NE(parser().read(tree.path("102.conf"), again), 0);
  EXPECT_EQ(QXL::getErrorMessage(),
            "cannot read " + tree.path("102.conf") + ": No such file or directory");
}

}  // namespace
