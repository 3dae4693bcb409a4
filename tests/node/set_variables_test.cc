#include "node/set_variables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"
#include "host/file.h"
#include "support/temp_tree.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(SetVariables, WordsAreRead) {
  EXPECT_THAT(node::parseAssignments({"NUMPROC=1:2", "HOSTNAME=", "NOTE=a=b c"}),
              ElementsAre(Pair("NUMPROC", "1:2"), Pair("HOSTNAME", ""), Pair("NOTE", "a=b c")));
}

TEST(SetVariables, WhatWouldBreakTheContainerIsRefused) {
  for (const char* word : {"NUMPROC", "=1", "numproc=1", "1A=1", "VE_ROOT=/x", "VE_PRIVATE=/x",
                           "VEID=7", "LOCKDIR=/x", "NOTE=a\nb"}) {
    EXPECT_THROW(node::parseAssignments({word}), node::Error) << word;
  }
}

TEST(SetVariables, ValuesThatNoContainerCanLiveWithAreRefused) {
  const auto refused = [](const std::string& name, const std::string& value) -> std::string {
    node::Container container;
    container.id = 101;
    container.vars[name] = value;
    try {
      node::checkSettings(container, {{name, value}});
    } catch (const node::Error& error) {
      EXPECT_EQ(error.code(), node::ExitCode::kUsage);
      return error.what();
    }
    return "";
  };
  for (const auto& [name, value] : {std::pair{"HOSTNAME", "web-1.example.org"},
                                    {"HOSTNAME", "old_name"},
                                    {"HOSTNAME", ""},
                                    {"IP_ADDRESS", "192.0.2.1/24 2001:db8::1/64 192.0.2.9 dhcp"},
                                    {"IP_ADDRESS", ""},
                                    {"NETIF", "ifname=eth0,ip=192.0.2.1/32,ip=dhcp"},
                                    {"GATEWAY", "192.0.2.1 2001:db8::1"},
                                    {"NAMESERVER", "192.0.2.53"},
                                    {"SLMMEMORYLIMIT", "16777216:16777216"},
                                    {"SLMMEMORYLIMIT", "unlimited"},
                                    {"OTHER", "whatever; it is"}}) {
    EXPECT_EQ(refused(name, value), "") << name;
  }
  for (const char* name : {"a;b", "web.", ".web", "a..b", "-web", "with blank", "b\xc3\xa4r"}) {
    EXPECT_EQ(refused("HOSTNAME", name),
              "HOSTNAME: '" + std::string(name) + "' is not a valid host name");
  }
  for (const char* address :
       {"foo", "192.0.2.300/24", "192.0.2.1/33", "192.0.2.1/0", "192.0.2.1/", "2001:db8::1/129"}) {
    const std::string said =
        " has '" + std::string(address) + "': ADDRESS/PREFIX or \"dhcp\" is expected";
    EXPECT_EQ(refused("IP_ADDRESS", address), "IP_ADDRESS" + said);
    EXPECT_EQ(refused("NETIF", "ifname=eth0,ip=" + std::string(address)), "NETIF" + said);
  }
  EXPECT_EQ(refused("GATEWAY", "192.0.2.1/24"), "GATEWAY: '192.0.2.1/24' is not a valid address");
  EXPECT_EQ(refused("NAMESERVER", "192.0.2.53 foo"), "NAMESERVER: 'foo' is not a valid address");
  EXPECT_EQ(refused("SLMMEMORYLIMIT", "512"),
            "SLMMEMORYLIMIT is 512 bytes: a container needs 16777216 at least");
}

TEST(SetVariables, CountAtOnceOrAtTheNextStartOrNever) {
  const test_support::TempTree area;
  node::Container container;
  container.privateArea = area.path("");
  container.vars = {{"NUMPROC", "300:300"},    {"NUMPTY", "20:20"},
                    {"KMEMSIZE", "9000:9000"}, {"DISKSPACE", "900:900"},
                    {"HOSTNAME", "web"},       {"CPUUNITS", ""},
                    {"SLMMEMORYLIMIT", "1:1"}, {"QUOTAUGIDLIMIT", "30:30"}};
  node::CgroupLayout layout;
  layout.v1 = {{"pids", ""}};
  const node::Effects effects =
      node::effectsOf(container,
                      {"NUMPROC", "NUMPTY", "KMEMSIZE", "DISKSPACE", "HOSTNAME", "CPUUNITS",
                       "SLMMEMORYLIMIT", "QUOTAUGIDLIMIT", "ONBOOT", "BRIDGE"},
                      layout);
  EXPECT_THAT(effects.now, ElementsAre("NUMPROC"));
  EXPECT_THAT(effects.nextStart, ElementsAre("NUMPTY", "HOSTNAME", "CPUUNITS", "BRIDGE"));
  EXPECT_THAT(effects.never, ElementsAre("KMEMSIZE", "DISKSPACE", "SLMMEMORYLIMIT"));
  host::replaceFile(area.path(".qx-image"), "", 0600);
  EXPECT_THAT(node::effectsOf(container, {"DISKSPACE"}, layout).nextStart,
              ElementsAre("DISKSPACE"));
}

TEST(SetVariables, LinesAreReplacedInPlaceAndTheRestStays) {
  EXPECT_EQ(node::withAssignments("# Limits\nNUMPROC=\"1:1\" # old\n\nHOSTNAME=web\nNUMPROC=2\n",
                                  {{"NUMPROC", "3:3"}, {"NOTE", "it's"}}, {}),
            "# Limits\nNUMPROC=\"3:3\"\n\nHOSTNAME=web\nNOTE=\"it's\"\n");
}

TEST(SetVariables, FileWithoutLastLineEnd) {
  EXPECT_EQ(node::withAssignments("A=1", {{"B", "2"}}, {}), "A=1\nB=\"2\"\n");
  EXPECT_EQ(node::withAssignments("", {{"B", "2"}}, {}), "B=\"2\"\n");
}

TEST(SetVariables, LineInsideALongerValueIsNoAssignment) {
  const std::string text = "NOTE='first\nNUMPROC=7\nlast'\n";
  const std::string changed = node::withAssignments(text, {{"NUMPROC", "9"}}, {});
  const node::ShellVars vars = node::parseShellVars(changed);
  EXPECT_EQ(vars.at("NOTE"), "first\nNUMPROC=7\nlast");
  EXPECT_EQ(vars.at("NUMPROC"), "9");
}

TEST(SetVariables, LastAssignmentOfAVariableWinsInTheListToo) {
  EXPECT_EQ(node::withAssignments("A=1\n", {{"A", "2"}, {"A", "3"}}, {}), "A=\"3\"\n");
}

TEST(SetVariables, ReferencesToOtherVariablesSurvive) {
  EXPECT_EQ(node::withAssignments("A=$VEID\nB=1\n", {{"B", "2"}}, {{"VEID", "101"}}),
            "A=$VEID\nB=\"2\"\n");
}

}  // namespace
