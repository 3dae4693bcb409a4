#include "host/interfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

host::Container containerWith(const host::ShellVars& vars) {
  host::Container container;
  container.id = 101;
  container.vars = vars;
  return container;
}

TEST(Interfaces, NetifSaysAllThereIs) {
  const auto found = host::interfacesOf(containerWith(
      {{"NETIF",
        "ifname=eth0,host_ifname=web0,mac=02:00:00:00:00:01,ip=192.0.2.7/24,ip=2001:db8::7/64;"
        "ifname=eth1,ip=dhcp"},
       {"IP_ADDRESS", "203.0.113.1"}}));
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].name, "eth0");
  EXPECT_EQ(found[0].hostName, "web0");
  EXPECT_EQ(found[0].mac, "02:00:00:00:00:01");
  EXPECT_THAT(found[0].addresses, ElementsAre("192.0.2.7/24", "2001:db8::7/64"));
  EXPECT_EQ(found[1].name, "eth1");
  EXPECT_EQ(found[1].hostName, "qx101.1");
  EXPECT_EQ(found[1].mac, "");
  EXPECT_THAT(found[1].addresses, ElementsAre("dhcp"));
}

TEST(Interfaces, AddressesAloneMakeEth0) {
  const auto found =
      host::interfacesOf(containerWith({{"IP_ADDRESS", " 192.0.2.7  198.51.100.7/24 "}}));
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, "eth0");
  EXPECT_EQ(found[0].hostName, "qx101.0");
  EXPECT_THAT(found[0].addresses, ElementsAre("192.0.2.7", "198.51.100.7/24"));
}

TEST(Interfaces, NothingGivenIsNoInterface) {
  EXPECT_THAT(host::interfacesOf(containerWith({})), IsEmpty());
  EXPECT_THAT(host::interfacesOf(containerWith({{"IP_ADDRESS", "  "}, {"NETIF", ";"}})), IsEmpty());
}

TEST(Interfaces, LongestIdStillGivesAValidHostName) {
  host::Container container = containerWith({{"IP_ADDRESS", "192.0.2.7"}});
  container.id = host::kMaxCtid;
  EXPECT_EQ(host::interfacesOf(container)[0].hostName, "qx2147483644.0");
}

TEST(Interfaces, MalformedFieldsAreRefusedByName) {
  for (const auto& [netif, part] : std::vector<std::pair<std::string, std::string>>{
           {"ip=192.0.2.7", "without ifname: 'ip=192.0.2.7'"},
           {"ifname=eth0,vlan=7", "unknown field 'vlan=7'"},
           {"ifname=eth0/1", "malformed field 'ifname=eth0/1'"},
           {"ifname=a234567890123456", "malformed field 'ifname=a234567890123456'"},
           {"ifname=eth0,mac=02:00", "malformed field 'mac=02:00'"},
           {"ifname=eth0,ip=", "malformed field 'ip='"}}) {
    try {
      host::interfacesOf(containerWith({{"NETIF", netif}}));
      ADD_FAILURE() << netif << " was accepted";
    } catch (const host::Error& error) {
      EXPECT_EQ(error.code(), host::ExitCode::kBadConfig);
      EXPECT_THAT(error.what(), HasSubstr(part));
    }
  }
}

}  // namespace
