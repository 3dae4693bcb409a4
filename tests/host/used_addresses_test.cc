#include "host/used_addresses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

constexpr char kConfs[] = "/etc/sysconfig/qx-scripts/";

TEST(UsedAddresses, AreThoseOfEveryInterfaceOfEveryContainerButOne) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "NET=192.0.2\n");
  host.file(kConfs + std::string("101.conf"), "IP_ADDRESS=\"192.0.2.1/24\"\n");
  host.file(kConfs + std::string("102.conf"),
            "NOTE='it'\\''s Bob'\nIP_ADDRESS=$NET.9\n"
            "NETIF=\"ifname=eth0,ip=192.0.2.2/24,ip=dhcp;ifname=eth1,ip=2001:db8::2\"\n");
  host.file(kConfs + std::string("103.conf"), "IP_ADDRESS=192.0.2.3\n");
  host.run([] {
    const host::UsedAddresses used = host::usedAddresses(103);
    EXPECT_THAT(
        used.holders,
        ElementsAre(Pair("192.0.2.1", "container 101"), Pair("192.0.2.2", "container 102"),
                    Pair("192.0.2.9", "container 102"), Pair("2001:db8::2", "container 102")));
    EXPECT_THAT(used.problems, IsEmpty());
  });
}

TEST(UsedAddresses, AContainerWhoseFileCannotBeReadIsReported) {
  ScratchHost host;
  host.file(kConfs + std::string("101.conf"), "IP_ADDRESS=192.0.2.1\n");
  host.file(kConfs + std::string("102.conf"), "IP_ADDRESS=192.0.2.2\nNOTE=it's Bob\n");
  host.file(kConfs + std::string("103.conf"), "NETIF=\"ifname=eth0,speed=1\"\n");
  host.run([] {
    const host::UsedAddresses used = host::usedAddresses(0);
    EXPECT_THAT(used.holders, ElementsAre(Pair("192.0.2.1", "container 101")));
    EXPECT_THAT(used.problems,
                ElementsAre(HasSubstr("102.conf: line 2: the closing ' is missing"),
                            HasSubstr("NETIF of container 103 has the unknown field 'speed=1'")));
  });
}

}  // namespace
