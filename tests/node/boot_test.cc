#include "node/boot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"
#include "host/file.h"
#include "node_test/system_tree.h"
#include "support/scratch_host.h"

namespace {

using host::Container;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

Container withVars(unsigned id, const host::ShellVars& vars) {
  Container container;
  container.id = id;
  container.vars = vars;
  container.root = "/var/lib/qx/root/" + std::to_string(id);
  container.privateArea = "/srv/ct-" + std::to_string(id);
  return container;
}

std::vector<unsigned> idsOf(const std::vector<Container>& containers) {
  std::vector<unsigned> ids;
  for (const Container& container : containers) ids.push_back(container.id);
  return ids;
}

TEST(BootOrder, IsByNumberThenByIdAndHasOnlyThoseThatAskForIt) {
  EXPECT_THAT(idsOf(node::bootOrder({withVars(103, {{"ONBOOT", "yes"}}), withVars(101, {}),
                                     withVars(102, {{"ONBOOT", "yes"}}),
                                     withVars(107, {{"ONBOOT", "yes"}, {"BOOTORDER", "10"}}),
                                     withVars(105, {{"ONBOOT", "no"}, {"BOOTORDER", "1"}}),
                                     withVars(106, {{"ONBOOT", "yes"}, {"BOOTORDER", "9"}})})),
              ElementsAre(106, 107, 102, 103));
}

TEST(BootOrder, NamesWordsThatMeanNothing) {
  for (const host::ShellVars& vars :
       {host::ShellVars{{"ONBOOT", "true"}}, {{"ONBOOT", "yes"}, {"BOOTORDER", "first"}}}) {
    try {
      node::bootOrder({withVars(101, vars)});
      ADD_FAILURE() << "it was accepted";
    } catch (const host::Error& error) {
      EXPECT_EQ(error.code(), host::ExitCode::kBadConfig);
      EXPECT_THAT(error.what(), testing::ContainsRegex("'(true|first)'"));
    }
  }
}

// As systemd-escape --path --suffix=mount prints them.
TEST(MountUnit, IsNamedAsSystemdNamesIt) {
  EXPECT_EQ(node::mountUnit("/"), "-.mount");
  EXPECT_EQ(node::mountUnit("/srv"), "srv.mount");
  EXPECT_EQ(node::mountUnit("/srv/big disk/a-b"), "srv-big\\x20disk-a\\x2db.mount");
  EXPECT_EQ(node::mountUnit("/.hidden/x.y_z"), "\\x2ehidden-x.y_z.mount");
  EXPECT_EQ(node::mountUnit("/a/.b"), "a-.b.mount");
}

TEST(BootDropIn, WaitsForTheMountsOnTheWayToEachPrivateArea) {
  const std::string text = node::bootDropIn({withVars(101, {})});
  EXPECT_THAT(text, HasSubstr("[Unit]\n"));
  EXPECT_THAT(text, HasSubstr("Wants=srv.mount\nAfter=srv.mount\n"));
  EXPECT_THAT(text, HasSubstr("Wants=srv-ct\\x2d101.mount\n"));
  EXPECT_THAT(text, HasSubstr("After=var-lib-qx-root-101.mount\n"));
  EXPECT_THAT(text, Not(HasSubstr("Requires")))
      << "a disk that is missing must not keep the others down";
  EXPECT_THAT(text, Not(HasSubstr("Wants=var-lib-qx-root-101.mount"))) << "qxctl mounts that";
}

TEST(BootGenerator, WritesTheDropInDespiteAMalformedConfiguration) {
  ScratchHost()
      .file("/etc/sysconfig/qx-scripts/101.conf", "VE_PRIVATE=/data/101\n")
      .file("/etc/sysconfig/qx-scripts/102.conf", "VE_PRIVATE=${\n")
      .dir("/run/units")
      .run([] {
        const node_test::ToolResult result =
            node_test::runTool({node_test::toolPath("qx-containers-generator"), "/run/units",
                                "/run/early", "/run/late"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.err, HasSubstr("warning"));
        EXPECT_THAT(host::readFile("/run/units/qx-containers.service.d/mounts.conf").value_or(""),
                    HasSubstr("After=data.mount\n"));
        EXPECT_FALSE(host::exists("/etc/qx")) << "it writes nothing elsewhere";
      });
}

}  // namespace
