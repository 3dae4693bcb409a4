#include "agent/framework/validation.h"

#include <gtest/gtest.h>

namespace {

TEST(Validation, ContainerIdsHaveARange) {
  EXPECT_EQ(agent::checkContainerId(1), "");
  EXPECT_EQ(agent::checkContainerId(2147483644), "");
  EXPECT_EQ(agent::checkContainerId(0), "container id 0 is not between 1 and 2147483644");
  EXPECT_EQ(agent::checkContainerId(-5), "container id -5 is not between 1 and 2147483644");
  EXPECT_EQ(agent::checkContainerId(2147483645),
            "container id 2147483645 is not between 1 and 2147483644");
}

TEST(Validation, ExclusionsMayHoldWildcardsOnly) {
  for (const char* good :
       {"/proc/*", "/a?b", "/x/[a-z]*", "/var/lib/x.y_z-1", "/\xc3\xa4", "/a~"}) {
    EXPECT_EQ(agent::checkExclusion(good), "") << good;
  }
  EXPECT_EQ(agent::checkExclusion("tmp"), "exclusion 'tmp' is not an absolute path");
  EXPECT_EQ(agent::checkExclusion(""), "exclusion '' is not an absolute path");
  EXPECT_EQ(agent::checkExclusion("/a b"),
            "exclusion '/a b' holds the character ' ', which cannot be passed to a command");
  EXPECT_EQ(agent::checkExclusion("/a\nb"),
            "exclusion '/a\\nb' holds the character '\\n', which cannot be passed to a command");
  for (const char c : std::string("\"'`$\\&|;<>(){}!#^\t\n\r\x01\x7f")) {
    EXPECT_NE(agent::checkExclusion(std::string("/a") + c + "b"), "") << static_cast<int>(c);
  }
  EXPECT_NE(agent::checkExclusion(std::string("/a\0b", 4)), "");
}

TEST(Validation, RootsAreAbsoluteAndPlain) {
  for (const char* good : {"/var/lib/qx/root/$VEID", "/a/${VEID}/b", "/x"}) {
    EXPECT_EQ(agent::checkRoot("VE_ROOT", good), "") << good;
  }
  EXPECT_EQ(agent::checkRoot("VE_ROOT", "x"), "VE_ROOT 'x' is not an absolute path");
  EXPECT_EQ(agent::checkRoot("VE_ROOT", ""), "VE_ROOT '' is not an absolute path");
  EXPECT_EQ(agent::checkRoot("VE_ROOT", "//"), "VE_ROOT '//' is the root of the host");
  EXPECT_EQ(agent::checkRoot("VE_PRIVATE", "/a/../etc"), "VE_PRIVATE '/a/../etc' has a '..' in it");
  EXPECT_NE(agent::checkRoot("VE_ROOT", "/a*"), "");
  EXPECT_NE(agent::checkRoot("VE_ROOT", "/$HOME"), "");
  EXPECT_NE(agent::checkRoot("VE_ROOT", "/a b"), "");
}

TEST(Validation, ServicesAreNames) {
  EXPECT_EQ(agent::checkService("apache2"), "");
  EXPECT_EQ(agent::checkService("getty@tty1"), "");
  EXPECT_EQ(agent::checkService(""), "service '' is empty");
  EXPECT_EQ(agent::checkService("../cron"), "service '../cron' is not a plain name");
  EXPECT_EQ(agent::checkService(".."), "service '..' is not a plain name");
  EXPECT_NE(agent::checkService("a;reboot"), "");
}

TEST(Validation, ARecordIsCheckedWhole) {
  QXA::QXAMigrateP2VSerializerParams record;
  record.ctid = 101;
  EXPECT_EQ(agent::checkRecord(record), "");
  record.options.config.reset(new QXA::QXAEnvConfig());
  EXPECT_EQ(agent::checkRecord(record), "");
  record.options.config->setVERootVar("relative");
  EXPECT_EQ(agent::checkRecord(record), "VE_ROOT 'relative' is not an absolute path");
  record.options.config->setVERootVar("/r");
  record.options.config->setVEPrivateVar("/");
  EXPECT_EQ(agent::checkRecord(record), "VE_PRIVATE '/' is the root of the host");
  record.options.config->setVEPrivateVar("/p");
  record.options.config->setDistribution(QXA::QXADistribution{"../x", "1"});
  EXPECT_EQ(agent::checkRecord(record), "distribution '../x1' is not a plain name");
  record.options.config->setDistribution(QXA::QXADistribution{"debian", "12"});
  record.options.config->setOsTemplate(QXA::QXAOsTemplate{"a/b"});
  EXPECT_EQ(agent::checkRecord(record), "OS template 'a/b' is not a plain name");
  record.options.config->setOsTemplate(QXA::QXAOsTemplate{".debian"});
  EXPECT_EQ(agent::checkRecord(record), "");
  record.options.services.push_back({"a/b"});
  EXPECT_EQ(agent::checkRecord(record), "service 'a/b' is not a plain name");
}

TEST(Validation, AddressesAreThoseOfOneHost) {
  for (const char* good : {"192.0.2.10/24", "2001:db8::5", "dhcp", "auto"}) {
    EXPECT_EQ(agent::checkAddress(good), "") << good;
  }
  for (const char* none :
       {"foo", "", "192.0.2.300/24", "192.0.2.5/33", "192.0.2.5,192.0.2.6", "DHCP", "0.0.0.0"}) {
    EXPECT_EQ(agent::checkAddress(none),
              "the address '" + std::string(none) +
                  "' is none: ADDRESS/PREFIX such as 192.0.2.10/24, \"dhcp\" or \"auto\" is "
                  "expected");
  }
}

TEST(Validation, NameServersAreAddresses) {
  EXPECT_EQ(agent::checkNameserver("192.0.2.53"), "");
  EXPECT_EQ(agent::checkNameserver("2001:db8::53"), "");
  EXPECT_EQ(agent::checkNameserver("192.0.2.53/24"),
            "the name server '192.0.2.53/24' is not a valid address");
  EXPECT_EQ(agent::checkNameserver("foo"), "the name server 'foo' is not a valid address");
}

}  // namespace
