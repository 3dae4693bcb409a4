// What a server may claim to have measured.

#include "agent/plan/measured_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/env_manager.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));

QXA::QXAEnvConfig configOf(const std::string& text) {
  QXA::QXAEnvConfig config;
  EXPECT_EQ(parser.parse(text, config), 0) << text;
  return config;
}

std::string refusalOf(const std::string& text) {
  QXA::QXAEnvConfig config = configOf(text);
  try {
    agent::keepMeasurable(config);
  } catch (const std::exception& problem) {
    return problem.what();
  }
  return "";
}

constexpr const char* kMeasured =
    "DISTRIBUTION=\"debian-12\"\n"
    "HOSTNAME=\"old\"\n"
    "IP_ADDRESS=\"192.0.2.11 2001:db8::1\"\n"
    "NAMESERVER=\"192.0.2.53\"\n"
    "NETIF=\"ifname=eth0,ip=192.0.2.11/24,ip=2001:db8::1/64,ip=dhcp\"\n"
    "NUMPROC=\"240:240\"\n"
    "QUOTAUGIDLIMIT=\"0\"\n"
    "SEARCHDOMAIN=\". example.com lan.\"\n"
    "SLMMODE=\"all\"\n";

TEST(MeasuredConfig, AllThatACalculatorMeasuresIsKept) {
  QXA::QXAEnvConfig config = configOf(kMeasured);
  EXPECT_THAT(agent::keepMeasurable(config), IsEmpty());
  EXPECT_EQ(parser.format(config), kMeasured);
}

TEST(MeasuredConfig, WhatTheNodeDecidesIsRefusedByName) {
  const std::pair<const char*, const char*> lies[] = {
      {"VE_PRIVATE=\"/var/lib/qx/private/180/fs/x\"\n", "VE_PRIVATE"},
      {"VE_ROOT=\"/run/udev/rules.d\"\n", "VE_ROOT"},
      {"UNPRIVILEGED=\"no\"\n", "UNPRIVILEGED"},
      {"BRIDGE=\"br-lan\"\n", "BRIDGE"},
      {"STORAGE=\"ext4\"\n", "STORAGE"},
      {"OSTEMPLATE=\"x\"\n", "OSTEMPLATE"},
      {"ONBOOT=\"yes\"\n", "ONBOOT"},
      {"SLMMODE=\"none\"\n", "SLMMODE"},
      {"NETIF=\"ifname=eth0,host_ifname=lo\"\n", "NETIF"},
      {"NETIF=\"ifname=eth0,mac=00:11:22:33:44:55\"\n", "NETIF"},
      {"NETIF=\"ifname=eth1\"\n", "NETIF"},
      {"NETIF=\"ifname=eth0;ifname=eth0\"\n", "NETIF"},
  };
  for (const auto& [text, name] : lies) {
    EXPECT_THAT(refusalOf(std::string(kMeasured) + text),
                HasSubstr(std::string("the server's measurement sets ") +
                          (std::string(name) == "UNPRIVILEGED" || std::string(name) == "BRIDGE" ||
                                   std::string(name) == "STORAGE" || std::string(name) == "ONBOOT"
                               ? "'" + std::string(name) + "'"
                               : name) +
                          " to "))
        << text;
  }
}

TEST(MeasuredConfig, AValueInARefusalCannotDriveTheTerminal) {
  EXPECT_THAT(refusalOf("VE_ROOT=\"/x\x1b[2J\xc2\x9b\"\n"), HasSubstr("'/x\\x1b[2J\\x9b'"));
}

TEST(MeasuredConfig, ValuesThatNoContainerCanHaveAreLeftOutAndTold) {
  QXA::QXAEnvConfig config = configOf(
      "IP_ADDRESS=\"192.0.2.11 auto 1.2.3\"\n"
      "NETIF=\"ifname=eth0,ip=auto,ip=192.0.2.11/24\"\n"
      "NAMESERVER=\"192.0.2.53 ns;reboot\"\n"
      "SEARCHDOMAIN=\"good.example bad;id\"\n"
      "DISTRIBUTION=\"../../x\"\n");
  EXPECT_THAT(agent::keepMeasurable(config),
              ElementsAre("The server's address 'auto' is not valid and is left out.",
                          "The server's address '1.2.3' is not valid and is left out.",
                          "The server's interface address 'auto' is not valid and is left out.",
                          "The server's name server 'ns;reboot' is not valid and is left out.",
                          "The server's search domain 'bad;id' is not valid and is left out.",
                          "The server's distribution '../../x' is not valid and is left out."));
  EXPECT_EQ(parser.format(config),
            "IP_ADDRESS=\"192.0.2.11\"\n"
            "NAMESERVER=\"192.0.2.53\"\n"
            "NETIF=\"ifname=eth0,ip=192.0.2.11/24\"\n"
            "SEARCHDOMAIN=\"good.example\"\n");
}

TEST(MeasuredConfig, EndlessListsEnd) {
  std::string text = "NAMESERVER=\"";
  for (int i = 0; i < 100; ++i) text += "192.0.2." + std::to_string(i) + " ";
  QXA::QXAEnvConfig config = configOf(text + "\"\n");
  EXPECT_THAT(
      agent::keepMeasurable(config),
      ElementsAre("The server has more than 64 name server entries; the others are left out."));
  std::optional<std::list<std::string>> servers;
  config.getNameservers(servers);
  EXPECT_EQ(servers->size(), 64u);
}

}  // namespace
