// The container's interface from a network information library of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <cstring>

#include "framework/qxnet.h"
#include "hwcalc/hw_calc.h"

using testing::ElementsAre;
using testing::IsEmpty;

struct qxnet_filter {};

namespace {

qxnet_filter theFilter;
bool noMemory = false;
std::vector<qxnet_info_t> infos;
int filters = 0;
int lists = 0;

class NetAdapters : public testing::Test {
 protected:
  ~NetAdapters() override {
    EXPECT_EQ(filters, 0);
    EXPECT_EQ(lists, 0);
    noMemory = false;
    infos.clear();
  }

  void interface(const char* name, unsigned flags, bool dhcp,
                 std::vector<qxnet_address_t> addresses) {
    qxnet_info_t info{};
    std::strcpy(info.name, name);
    std::strcpy(info.mac, "02:00:00:00:00:01");
    info.flags = flags;
    info.dhcp = dhcp;
    held_.push_back(std::move(addresses));
    for (size_t i = 1; i < held_.back().size(); ++i) held_.back()[i - 1].next = &held_.back()[i];
    info.addresses = held_.back().empty() ? nullptr : held_.back().data();
    infos.push_back(info);
  }

  std::vector<std::string> addressesOfEth0() {
    std::list<QXA::QXACalculateHWNodeWarning> warnings;
    std::vector<QXA::QXANetVEth> interfaces(3);
    EXPECT_EQ(calculator_.getNetAdapters(warnings, interfaces), QXHWCalc::EC_OK);
    EXPECT_EQ(interfaces.size(), 1u);
    EXPECT_EQ(interfaces[0].name, "eth0");
    EXPECT_EQ(interfaces[0].mac, "");
    std::vector<std::string> texts;
    for (const auto& address : interfaces[0].addresses) texts.push_back(address.text);
    return texts;
  }

  QXHWCalc calculator_;
  std::list<std::vector<qxnet_address_t>> held_;
};

constexpr unsigned ETHERNET = IFF_UP | IFF_BROADCAST;

}  // namespace

qxnet_filter_t* qxnet_get_simple_filter() {
  if (noMemory) return nullptr;
  ++filters;
  return &theFilter;
}
void qxnet_release_filter(qxnet_filter_t* filter) {
  EXPECT_EQ(filter, &theFilter);
  --filters;
}
qxnet_info_t* qxnet_get_info(const qxnet_filter_t* filter) {
  EXPECT_EQ(filter, &theFilter);
  if (infos.empty()) return nullptr;
  for (size_t i = 1; i < infos.size(); ++i) infos[i - 1].next = &infos[i];
  ++lists;
  return infos.data();
}
void qxnet_release_info(qxnet_info_t* info) {
  EXPECT_EQ(info, infos.data());
  --lists;
}

TEST_F(NetAdapters, AllAddressesComeToOneInterface) {
  interface("enp1s0", ETHERNET, false,
            {{nullptr, AF_INET, "10.0.0.1", 24}, {nullptr, AF_INET6, "fd00::1", 64}});
  interface("enp2s0", ETHERNET, false, {{nullptr, AF_INET, "10.0.1.1", 16}});
  EXPECT_THAT(addressesOfEth0(), ElementsAre("10.0.0.1/24", "fd00::1/64", "10.0.1.1/16"));
}

TEST_F(NetAdapters, AddressByDhcpBecomesTheWord) {
  interface("eth0", ETHERNET, true, {{nullptr, AF_INET, "10.0.0.1", 24}});
  EXPECT_THAT(addressesOfEth0(), ElementsAre("dhcp"));
}

TEST_F(NetAdapters, WordForDhcpComesOnce) {
  interface("eth0", ETHERNET, true, {{nullptr, AF_INET, "10.0.0.1", 24}});
  interface("eth1", ETHERNET, true, {{nullptr, AF_INET, "10.0.1.1", 24}});
  interface("eth2", ETHERNET, false, {{nullptr, AF_INET, "10.0.2.1", 24}});
  EXPECT_THAT(addressesOfEth0(), ElementsAre("dhcp", "10.0.2.1/24"));
}

TEST_F(NetAdapters, InterfacesThatAreNotTakenOverGiveNothing) {
  interface("eth0", IFF_BROADCAST, true, {{nullptr, AF_INET, "10.0.0.1", 24}});
  interface("tun0", IFF_UP | IFF_POINTOPOINT, false, {{nullptr, AF_INET, "10.9.0.1", 32}});
  interface("eth1", ETHERNET, false, {});
  EXPECT_THAT(addressesOfEth0(), IsEmpty());
}

TEST_F(NetAdapters, MissingFilterIsAnError) {
  noMemory = true;
  std::list<QXA::QXACalculateHWNodeWarning> warnings;
  std::vector<QXA::QXANetVEth> interfaces(3);
  EXPECT_EQ(calculator_.getNetAdapters(warnings, interfaces), 1u);
  EXPECT_STREQ(calculator_.errorText, "Error: Could not alloc memory!");
  EXPECT_THAT(interfaces, IsEmpty());
  EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(NetAdapters, MissingInformationIsAnError) {
  std::list<QXA::QXACalculateHWNodeWarning> warnings;
  std::vector<QXA::QXANetVEth> interfaces(3);
  EXPECT_EQ(calculator_.getNetAdapters(warnings, interfaces), 1u);
  EXPECT_STREQ(calculator_.errorText, "Error: Could not get network configuration!");
  EXPECT_THAT(interfaces, IsEmpty());
}

TEST_F(NetAdapters, FailureLeavesAConfigurationWithoutInterfaces) {
  QXHWCalc::PhysParams params;
  params.hostname = "server";
  QXA::QXAEnvConfig config;
  EXPECT_EQ(calculator_.calcVPSConf(params, config), 0);
  std::optional<std::vector<QXA::QXANetVEth>> interfaces;
  config.getNetVEths(interfaces);
  ASSERT_TRUE(interfaces.has_value());
  EXPECT_THAT(*interfaces, IsEmpty());
}
