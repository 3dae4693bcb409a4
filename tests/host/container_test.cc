#include "host/container.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"
#include "host/file.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using host::Error;
using host::ExitCode;
using test_support::kConf;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(ParseCtid, AcceptsTheWholeRangeAndNothingElse) {
  EXPECT_EQ(host::parseCtid("1"), 1u);
  EXPECT_EQ(host::parseCtid("2147483644"), 2147483644u);
  for (const char* text : {"", "0", "-1", "2147483645", "101x", " 101", "101.conf", "../1"}) {
    EXPECT_THROW(host::parseCtid(text), Error) << text;
  }
}

TEST(FindContainer, WithoutAnyFileUsesTheBuiltInPlaces) {
  ScratchHost().run([] {
    const host::Container container = host::findContainer(101);
    EXPECT_FALSE(container.configured);
    EXPECT_EQ(container.root, "/var/lib/qx/root/101");
    EXPECT_EQ(container.privateArea, "/var/lib/qx/private/101");
    EXPECT_EQ(container.tree(), "/var/lib/qx/private/101/fs");
    EXPECT_EQ(container.lockDir, "/run/qx/lock");
    EXPECT_THROW(host::loadContainer(101), Error);
  });
}

TEST(FindContainer, OwnValuesWinOverTheHostsAndBothMayNameTheId) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf",
            "LOCKDIR=/run/lock/other\nVE_ROOT=/vz/root/$VEID\nVE_PRIVATE=/vz/private/$VEID\n");
  host.file(kConf, "VE_PRIVATE=\"/data/$VEID\"\nHOSTNAME=\"web\"\n");
  host.run([] {
    const host::Container container = host::loadContainer(101);
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
      host::findContainer(101);
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
        EXPECT_THROW(host::findContainer(1), Error);
        EXPECT_THROW(host::findContainer(2), Error);
        EXPECT_NO_THROW(host::findContainer(3));
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
      EXPECT_THROW(host::checkPlace("VE_PRIVATE", path), Error) << path;
    }
    for (const char* path : {"/vz/101", "/vz", "/home/ct", "/var/lib/qx/private/101", "/srv/a b"}) {
      EXPECT_NO_THROW(host::checkPlace("VE_PRIVATE", path)) << path;
    }
  });
}

TEST(ConfiguredIds, AreTheNumberedFilesInAscendingOrder) {
  ScratchHost host;
  for (const char* name : {"9.conf", "101.conf", "x.conf", "0.conf", "007.conf", "12.conf.bak"}) {
    host.file(std::string("/etc/sysconfig/qx-scripts/") + name, "");
  }
  host.run([] { EXPECT_THAT(host::configuredIds(), ElementsAre(9u, 101u)); });
  ScratchHost().run([] { EXPECT_THAT(host::configuredIds(), IsEmpty()); });
}

TEST(EnsureConfigDirectory, MakesTheDirectoryAndItsSecondName) {
  ScratchHost().run([] {
    EXPECT_EQ(host::ensureConfigDirectory(), "");
    EXPECT_EQ(host::ensureConfigDirectory(), "");
    host::replaceFile("/etc/qx/conf/101.conf", "A=1\n", 0644);
    EXPECT_EQ(test_support::readFile(kConf), "A=1\n");
  });
}

TEST(EnsureConfigDirectory, WarnsWhenTheSecondNameIsSomethingElse) {
  ScratchHost().file("/etc/qx/conf/102.conf", "").run([] {
    EXPECT_THAT(host::ensureConfigDirectory(), HasSubstr("/etc/qx/conf should be a symbolic link"));
    EXPECT_TRUE(host::exists("/etc/qx/conf/102.conf"));
  });
}

}  // namespace
