// The order in which a configuration is written: what is set before the host name stays
// when that is refused, what comes after it is not reached.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hwcalc/hw_calc.h"

using testing::ElementsAre;

namespace {

std::vector<std::string> calls;

}  // namespace

// The linker sends the calculator's calls here; see the list in CMakeLists.txt.
#define RECORDED(symbol, name)                           \
  extern "C" {                                           \
  int __real_##symbol(void* config, const void* value);  \
  int __wrap_##symbol(void* config, const void* value);  \
  int __wrap_##symbol(void* config, const void* value) { \
    calls.push_back(name);                               \
    return __real_##symbol(config, value);               \
  }                                                      \
  }

RECORDED(
    _ZN3QXA12QXAEnvConfig10setSLMModeERKSt8optionalINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEE,
    "setSLMMode")
RECORDED(_ZN3QXL13QXLVEnvConfig8setQoSesERKSt8optionalISt3setINS_6QXLQoSESt4lessIS3_ESaIS3_EEE,
         "setQoSes")
RECORDED(_ZN3QXA12QXAEnvConfig15setDistributionERKSt8optionalINS_15QXADistributionEE,
         "setDistribution")
RECORDED(_ZN3QXL12QXLEnvConfig12setAddressesERKSt8optionalISt6vectorINS_12QXLIPAddressESaIS3_EEE,
         "setAddresses")
RECORDED(_ZN3QXA12QXAEnvConfig11setNetVEthsERKSt8optionalISt6vectorINS_10QXANetVEthESaIS3_EEE,
         "setNetVEths")
RECORDED(
    _ZN3QXL12QXLEnvConfig11setHostnameERKSt8optionalINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEE,
    "setHostname")
RECORDED(
    _ZN3QXL12QXLEnvConfig14setNameserversERKSt8optionalINSt7__cxx114listINS2_12basic_stringIcSt11char_traitsIcESaIcEEESaIS8_EEEE,
    "setNameservers")

#define SET_LIST \
  _ZN3QXL12QXLEnvConfig17setStringListAttrERKSt3setINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESt4lessIS7_ESaIS7_EEi
#define JOINED(a, b) a##b
#define NAMED(a, b) JOINED(a, b)

extern "C" {
int NAMED(__real_, SET_LIST)(void* config, const void* values, int attribute);
int NAMED(__wrap_, SET_LIST)(void* config, const void* values, int attribute);
int NAMED(__wrap_, SET_LIST)(void* config, const void* values, int attribute) {
  calls.push_back("setStringListAttr " + std::to_string(attribute));
  return NAMED(__real_, SET_LIST)(config, values, attribute);
}
}

namespace {

std::vector<std::string> callsFor(const QXHWCalc::PhysParams& params, int expected) {
  calls.clear();
  QXA::QXAEnvConfig config;
  EXPECT_EQ(QXHWCalc().calcVPSConf(params, config), expected);
  return calls;
}

QXHWCalc::PhysParams server() {
  QXHWCalc::PhysParams params;
  params.hostname = "server";
  params.ip_addresses = {"10.0.0.1"};
  params.search_domains = {"a.org"};
  params.nameservers = {"10.0.0.53"};
  return params;
}

}  // namespace

TEST(SetOrder, OfAWholeConfiguration) {
  EXPECT_THAT(callsFor(server(), 0), ElementsAre("setSLMMode", "setQoSes", "setDistribution",
                                                 "setAddresses", "setNetVEths", "setHostname",
                                                 "setStringListAttr 1558", "setNameservers"));
}

TEST(SetOrder, EndsAtARefusedHostName) {
  QXHWCalc::PhysParams params = server();
  params.hostname = "no host name!";
  EXPECT_THAT(callsFor(params, 1), ElementsAre("setSLMMode", "setQoSes", "setDistribution",
                                               "setAddresses", "setNetVEths", "setHostname"));
}

TEST(SetOrder, SettersOfEmptyListsAreNotCalled) {
  QXHWCalc::PhysParams params = server();
  params.search_domains.clear();
  params.nameservers.clear();
  EXPECT_EQ(callsFor(params, 0).back(), "setHostname");
  params.nameservers = {"10.0.0.53"};
  EXPECT_THAT(callsFor(params, 0).back(), "setNameservers");
  EXPECT_EQ(calls.size(), 7u);
}
