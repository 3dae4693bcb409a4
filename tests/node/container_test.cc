#include "node/container.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "node/error.h"
#include "node/file.h"
#include "support/scratch_host.h"

namespace {

using node::Error;
using node::ExitCode;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kConf[] = "/etc/sysconfig/qx-scripts/101.conf";

TEST(ParseCtid, AcceptsTheWholeRangeAndNothingElse) {
  EXPECT_EQ(node::parseCtid("1"), 1u);
  EXPECT_EQ(node::parseCtid("2147483644"), 2147483644u);
  for (const char* text : {"", "0", "-1", "2147483645", "101x", " 101", "101.conf", "../1"}) {
    EXPECT_THROW(node::parseCtid(text), Error) << text;
  }
}

TEST(FindContainer, WithoutAnyFileUsesTheBuiltInPlaces) {
  ScratchHost().run([] {
    const node::Container container = node::findContainer(101);
    EXPECT_FALSE(container.configured);
    EXPECT_EQ(container.root, "/var/lib/qx/root/101");
    EXPECT_EQ(container.privateArea, "/var/lib/qx/private/101");
    EXPECT_EQ(container.tree(), "/var/lib/qx/private/101/fs");
    EXPECT_EQ(container.lockDir, "/var/lock/qx");
    EXPECT_THROW(node::loadContainer(101), Error);
  });
}

TEST(FindContainer, OwnValuesWinOverTheHostsAndBothMayNameTheId) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf",
            "LOCKDIR=/run/lock/other\nVE_ROOT=/vz/root/$VEID\nVE_PRIVATE=/vz/private/$VEID\n");
  host.file(kConf, "VE_PRIVATE=\"/data/$VEID\"\nHOSTNAME=\"web\"\n");
  host.run([] {
    const node::Container container = node::loadContainer(101);
    EXPECT_TRUE(container.configured);
    EXPECT_EQ(container.root, "/vz/root/101");
    EXPECT_EQ(container.privateArea, "/data/101");
    EXPECT_EQ(container.lockDir, "/run/lock/other");
    EXPECT_EQ(container.var("HOSTNAME"), "web");
    EXPECT_EQ(container.var("OSTEMPLATE"), "");
  });
}

TEST(FindContainer, MalformedFileIsRefusedByName) {
  ScratchHost().file(kConf, "VE_PRIVATE=\"/data\n").run([] {
    try {
      node::findContainer(101);
      FAIL() << "accepted";
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ExitCode::kBadConfig);
      EXPECT_THAT(error.what(), HasSubstr(std::string(kConf) + ": line 1: "));
    }
  });
}

TEST(FindContainer, RootAndPrivateAreaInOneAnotherAreRefused) {
  ScratchHost()
      .file("/etc/sysconfig/qx-scripts/1.conf", "VE_ROOT=/vz/1/fs/root\nVE_PRIVATE=/vz/1\n")
      .file("/etc/sysconfig/qx-scripts/2.conf", "VE_ROOT=/vz/2\nVE_PRIVATE=/vz/2\n")
      .file("/etc/sysconfig/qx-scripts/3.conf", "VE_ROOT=/vz/3\nVE_PRIVATE=/vz/33\n")
      .run([] {
        EXPECT_THROW(node::findContainer(1), Error);
        EXPECT_THROW(node::findContainer(2), Error);
        EXPECT_NO_THROW(node::findContainer(3));
      });
}

TEST(CheckPlace, RefusesDangerousPaths) {
  ScratchHost().dir("/vz").symlink("/vz/link", "/usr").run([] {
    for (const char* path : {"",
                             "/",
                             "relative/path",
                             "//vz/101",
                             "/vz//101",
                             "/vz/101/",
                             "/vz/./101",
                             "/vz/../etc",
                             "/vz/..",
                             "/etc",
                             "/etc/x",
                             "/usr/local/ct",
                             "/var",
                             "/var/lib",
                             "/var/lib/qx",
                             "/var/lib/qx/private",
                             "/var/lib/qx/template",
                             "/home",
                             "/root",
                             "/tmp",
                             "/dev/shm/ct",
                             "/proc/1",
                             "/vz/link"}) {
      EXPECT_THROW(node::checkPlace("VE_PRIVATE", path), Error) << path;
    }
    for (const char* path : {"/vz/101", "/vz", "/home/ct", "/var/lib/qx/private/101", "/srv/a b"}) {
      EXPECT_NO_THROW(node::checkPlace("VE_PRIVATE", path)) << path;
    }
  });
}

TEST(ConfiguredIds, AreTheNumberedFilesInAscendingOrder) {
  ScratchHost host;
  for (const char* name : {"9.conf", "101.conf", "x.conf", "0.conf", "007.conf", "12.conf.bak"}) {
    host.file(std::string("/etc/sysconfig/qx-scripts/") + name, "");
  }
  host.run([] { EXPECT_THAT(node::configuredIds(), ElementsAre(9u, 101u)); });
  ScratchHost().run([] { EXPECT_THAT(node::configuredIds(), IsEmpty()); });
}

TEST(EnsureConfigDirectory, MakesTheDirectoryAndItsSecondName) {
  ScratchHost().run([] {
    EXPECT_EQ(node::ensureConfigDirectory(), "");
    EXPECT_EQ(node::ensureConfigDirectory(), "");
    node::replaceFile("/etc/qx/conf/101.conf", "A=1\n", 0644);
    EXPECT_EQ(test_support::readFile(kConf), "A=1\n");
  });
}

TEST(EnsureConfigDirectory, WarnsWhenTheSecondNameIsSomethingElse) {
  ScratchHost().file("/etc/qx/conf/102.conf", "").run([] {
    EXPECT_THAT(node::ensureConfigDirectory(), HasSubstr("/etc/qx/conf should be a symbolic link"));
    EXPECT_TRUE(node::exists("/etc/qx/conf/102.conf"));
  });
}

}  // namespace
