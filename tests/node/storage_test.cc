// What a tree lies on: with real loop devices, real ext4 and real btrfs, on a
// scratch host.
#include "node/storage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdlib>

#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "host/mounts.h"
#include "host/state.h"
#include "node/engine.h"
#include "node/ext4_image.h"
#include "node/private_area.h"
#include "node/report.h"
#include "node_test/system_tree.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using node::Error;
using node::ExitCode;
using node::Storage;
using node_test::runTool;
using node_test::toolPath;
using node_test::ToolResult;
using test_support::kArea;
using test_support::kConf;
using test_support::kRoot;
using test_support::kTree;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kImage[] = "/var/lib/qx/private/101/.qx-image";

std::string errorOf(const std::function<void()>& action, ExitCode expected) {
  try {
    action();
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), expected) << error.what();
    return error.what();
  }
  ADD_FAILURE() << "nothing was refused";
  return {};
}

bool hasLoopDevices() { return access("/dev/loop-control", R_OK | W_OK) == 0; }
bool kernelHas(const char* fileSystem) {
  return ("\n" + node::readFile("/proc/filesystems").value_or("")).find(fileSystem) !=
         std::string::npos;
}

/// Inside the scratch host: the machine's device files.
void showDevices() {
  ASSERT_EQ(mount("devices", "/dev", "devtmpfs", 0, nullptr), 0);
  node::makeDirectories("/sys");
  ASSERT_EQ(mount("sysfs", "/sys", "sysfs", MS_RDONLY, nullptr), 0);
}

void shell(const std::string& command) { ASSERT_EQ(system(command.c_str()), 0) << command; }

uint64_t kibOf(const std::string& path) {
  struct statfs fs {};
  EXPECT_EQ(statfs(path.c_str(), &fs), 0);
  return static_cast<uint64_t>(fs.f_blocks) * static_cast<uint64_t>(fs.f_bsize) / 1024;
}

/// Loop devices whose file lies on this host: the names of their files.
std::string loopFiles() {
  std::string names;
  for (const std::string& name : node::listDirectory("/sys/block")) {
    const auto file = node::readFile("/sys/block/" + name + "/loop/backing_file");
    if (file && file->find("qx-image") != std::string::npos) names += *file;
  }
  return names;
}

ToolResult qxctl(const std::vector<std::string>& words) {
  std::vector<std::string> command{toolPath("qxctl")};
  command.insert(command.end(), words.begin(), words.end());
  return runTool(command);
}

node::Container withVars(const node::ShellVars& vars) {
  node::Container container;
  container.id = 101;
  container.vars = vars;
  return container;
}

TEST(StoragePlan, IsADirectoryUnlessTold) {
  EXPECT_EQ(node::storagePlan(withVars({{"DISKSPACE", "1:1"}})).storage, Storage::kDirectory);
  const node::StoragePlan plan = node::storagePlan(
      withVars({{"STORAGE", "ext4"}, {"DISKSPACE", "1000000:2000000"}, {"DISKINODES", "5:7"}}));
  EXPECT_EQ(plan.storage, Storage::kExt4);
  EXPECT_EQ(plan.bytes, 2000000ULL * 1024) << "the limit counts, in KiB";
  EXPECT_EQ(plan.inodes, 7u);
  EXPECT_TRUE(plan.quota);
  EXPECT_FALSE(node::storagePlan(
                   withVars({{"STORAGE", "ext4"}, {"DISKSPACE", "1000000"}, {"DISK_QUOTA", "no"}}))
                   .quota);
  EXPECT_EQ(node::storagePlan(withVars({{"STORAGE", "btrfs"}})).bytes, std::nullopt);
}

TEST(StoragePlan, RefusesWhatNoImageCanBeMadeOf) {
  const auto refused = [](const node::ShellVars& vars) {
    return errorOf([&] { node::storagePlan(withVars(vars)); }, ExitCode::kBadConfig);
  };
  EXPECT_EQ(refused({{"STORAGE", "zfs"}}),
            "STORAGE is 'zfs': directory, ext4 or btrfs is expected");
  EXPECT_THAT(refused({{"STORAGE", "ext4"}}), HasSubstr("DISKSPACE gives no size"));
  EXPECT_THAT(refused({{"STORAGE", "ext4"}, {"DISKSPACE", "unlimited:unlimited"}}),
              HasSubstr("DISKSPACE gives no size"));
  EXPECT_EQ(refused({{"STORAGE", "ext4"}, {"DISKSPACE", "20000"}}),
            "DISKSPACE is 20000 KiB: an image of less than 32768 KiB is too small");
  EXPECT_THAT(refused({{"STORAGE", "ext4"}, {"DISKSPACE", "lots"}}), HasSubstr("'lots'"));
}

TEST(Ext4Superblock, OtherFilesAndCutOnesAreNone) {
  EXPECT_FALSE(node::parseExt4(""));
  EXPECT_FALSE(node::parseExt4(std::string(2048, '\0')));
  std::string image(2048, '\0');
  image[1024 + 0x38] = '\x53';
  image[1024 + 0x39] = '\xEF';
  image[1024 + 0x05] = '\x10';  // 4096 blocks
  ASSERT_TRUE(node::parseExt4(image));
  EXPECT_EQ(node::parseExt4(image)->bytes, 4096u * 1024);
  EXPECT_FALSE(node::parseExt4(image)->quota);
  image[1024 + 0x65] = '\x01';
  EXPECT_TRUE(node::parseExt4(image)->quota);
  EXPECT_FALSE(node::parseExt4(image.substr(0, 2047)));
  image[1024 + 0x18] = '\x7F';
  EXPECT_FALSE(node::parseExt4(image)) << "a block size that no kernel has";
}

class ImageTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasLoopDevices()) GTEST_SKIP() << "no loop devices here";
    // Loop devices are the whole machine's, so these tests take turns.
    ASSERT_GE(turn_.get(), 0);
    ASSERT_EQ(flock(turn_.get(), LOCK_EX), 0);
  }
  static ScratchHost host(const std::string& more = "") {
    return ScratchHost()
        .file("/etc/qx/qx.conf", "STORAGE=ext4\n")
        .file(kConf, "DISKSPACE=65536:65536\n" + more);
  }

 private:
  node::Fd turn_{open("/tmp/qxlinmigrate-loop-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
};

TEST_F(ImageTest, LifeOfAContainerAsAMigrationLeadsIt) {
  host().file("/s", "echo made >/made\n").run([] {
    showDevices();
    EXPECT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    EXPECT_THAT(node::listDirectory(kArea), ElementsAre(".qx-image", "fs"));
    EXPECT_EQ(node::imageSize(kArea), 64ULL << 20);
    EXPECT_THAT(node::listDirectory(kTree), IsEmpty());
    EXPECT_EQ(qxctl({"mount", "101"}).status, 0);
    struct statfs fs {};
    ASSERT_EQ(statfs(kRoot, &fs), 0);
    EXPECT_EQ(fs.f_type, EXT4_SUPER_MAGIC);
    EXPECT_LT(kibOf(kRoot), 65536u);
    EXPECT_GT(kibOf(kRoot), 40000u);
    struct stat st {};
    ASSERT_EQ(stat(kRoot, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    EXPECT_EQ(qxctl({"mount", "101"}).status, 0) << "a second time";
    node_test::makeSystemTree(kRoot);
    EXPECT_EQ(qxctl({"umount", "101"}).status, 0);
    EXPECT_FALSE(node::treeIsMounted(kArea));
    EXPECT_EQ(loopFiles(), "");
    EXPECT_FALSE(node::exists(std::string(kTree) + "/bin/sh"));
    EXPECT_EQ(qxctl({"umount", "101"}).status, 16);

    EXPECT_EQ(qxctl({"convert", "101"}).status, 0);
    EXPECT_EQ(qxctl({"runscript", "101", "/s"}).status, 0);
    EXPECT_FALSE(node::treeIsMounted(kArea)) << "mounted for the script only";
    EXPECT_THAT(qxctl({"status", "101"}).out, HasSubstr("storage       ext4 image of 64 MiB\n"));
    EXPECT_THAT(qxctl({"status", "101"}).out, Not(HasSubstr("DISKSPACE"))) << "it is enforced";
    EXPECT_THAT(qxctl({"status", "101", "--json"}).out, HasSubstr("\"image_bytes\": 67108864"));
    qxctl({"mount", "101"});
    EXPECT_EQ(test_support::readFile(std::string(kRoot) + "/made"), "made\n");
    EXPECT_EQ(qxctl({"destroy", "101"}).status, 0);
    EXPECT_FALSE(node::exists(kArea));
    EXPECT_FALSE(node::exists(kRoot));
    EXPECT_EQ(loopFiles(), "");
  });
}

TEST_F(ImageTest, GrowsWithTheConfigurationAndNeverShrinks) {
  host().run([] {
    showDevices();
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    qxctl({"mount", "101"});
    const uint64_t before = kibOf(kRoot);
    node::replaceFile(std::string(kRoot) + "/kept", "kept", 0644);
    qxctl({"umount", "101"});
    EXPECT_EQ(qxctl({"set", "101", "DISKSPACE=131072:131072"}).status, 0);
    ToolResult result = qxctl({"mount", "101"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_GT(kibOf(kRoot), before + 60000);
    EXPECT_EQ(test_support::readFile(std::string(kRoot) + "/kept"), "kept");
    qxctl({"umount", "101"});
    qxctl({"set", "101", "DISKSPACE=40000:40000"});
    EXPECT_EQ(qxctl({"mount", "101"}).status, 0);
    EXPECT_GT(kibOf(kRoot), before + 60000);
    qxctl({"umount", "101"});
    EXPECT_EQ(node::imageSize(kArea), 128ULL << 20);
  });
}

// As while LXC's monitor still has the mount in a namespace of its own.
TEST_F(ImageTest, IsEnlargedOnceWhoeverUsesItHasEnded) {
  host().run([] {
    showDevices();
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    node::makeDirectories("/elsewhere");
    shell(std::string("mount -o loop ") + kImage +
          " /elsewhere && { sleep 1; umount /elsewhere; } &");
    shell("until mountpoint -q /elsewhere; do sleep 0.01; done");
    qxctl({"set", "101", "DISKSPACE=131072:131072"});
    const ToolResult result = qxctl({"mount", "101"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(node::imageSize(kArea), 128ULL << 20);
    qxctl({"umount", "101"});
  });
}

TEST_F(ImageTest, InUseElsewhereForGoodIsNotMountedWithItsOldSize) {
  host().run([] {
    showDevices();
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    node::makeDirectories("/elsewhere");
    shell(std::string("mount -o loop ") + kImage + " /elsewhere");
    qxctl({"set", "101", "DISKSPACE=131072:131072"});
    const ToolResult result = qxctl({"mount", "101"});
    EXPECT_EQ(result.status, 17);
    EXPECT_THAT(result.err, HasSubstr("a loop device still shows it"));
    EXPECT_EQ(node::imageSize(kArea), 64ULL << 20);
    EXPECT_FALSE(node::treeIsMounted(kArea));
    shell("umount /elsewhere");
    EXPECT_EQ(qxctl({"mount", "101"}).err, "");
    EXPECT_EQ(node::imageSize(kArea), 128ULL << 20);
    qxctl({"umount", "101"});
  });
}

TEST_F(ImageTest, ThatIsMountedGrowsWhenMountedAgain) {
  host().run([] {
    showDevices();
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    ASSERT_EQ(qxctl({"mount", "101"}).status, 0);
    EXPECT_FALSE(node::growsWhenMounted(node::loadContainer(101)));
    qxctl({"set", "101", "DISKSPACE=131072:131072"});
    EXPECT_TRUE(node::growsWhenMounted(node::loadContainer(101)));
    qxctl({"umount", "101"});
    EXPECT_FALSE(node::growsWhenMounted(node::loadContainer(101)));
    EXPECT_EQ(qxctl({"mount", "101"}).err, "");
    EXPECT_EQ(node::imageSize(kArea), 128ULL << 20);
    EXPECT_FALSE(node::growsWhenMounted(node::loadContainer(101)));
    qxctl({"umount", "101"});
  });
}

TEST_F(ImageTest, OfATemplateIsFilledAndUnmounted) {
  host("OSTEMPLATE=base\n").file("/var/lib/qx/template/base/bin/sh", "shell", 0755).run([] {
    showDevices();
    const ToolResult result = qxctl({"create", "101"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_FALSE(node::treeIsMounted(kArea));
    EXPECT_TRUE(node::registration(node::loadContainer(101)));
    EXPECT_EQ(qxctl({"mount", "101"}).status, 0);
    EXPECT_EQ(test_support::readFile(std::string(kRoot) + "/bin/sh"), "shell");
    qxctl({"umount", "101"});
  });
}

TEST_F(ImageTest, TooSmallForItsTemplateLeavesNothing) {
  host("OSTEMPLATE=base\n").dir("/var/lib/qx/template/base").run([] {
    showDevices();
    shell("head -c 80M /dev/urandom >/var/lib/qx/template/base/large");
    const ToolResult result = qxctl({"create", "101"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("No space left on device"));
    EXPECT_THAT(node::listDirectory("/var/lib/qx/private"), IsEmpty());
    EXPECT_EQ(loopFiles(), "");
    EXPECT_THAT(node::mountsBelow(node::mountPoints(), "/var/lib/qx"), IsEmpty());
  });
}

TEST_F(ImageTest, WhatCannotBeMadeLeavesNothing) {
  // A mkfs that dies in the middle.
  host().tool("/usr/sbin/mkfs.ext4", {.status = 1, .err = "no memory\n"}).run([] {
    showDevices();
    const ToolResult result = runTool({toolPath("mkqxfs"), kArea});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("no memory"));
    EXPECT_FALSE(node::exists(kArea));
  });
  host().run([] {
    showDevices();
    shell("rm /usr/sbin/mkfs.ext4");
    const ToolResult result = runTool({toolPath("mkqxfs"), kArea});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "mkqxfs: the program mkfs.ext4 is missing: install the package e2fsprogs\n");
    EXPECT_FALSE(node::exists(kArea));
  });
  host("DISKSPACE=100\n").run([] {
    const ToolResult result = runTool({toolPath("mkqxfs"), kArea});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("too small"));
    EXPECT_FALSE(node::exists(kArea));
  });
  // No loop devices: /dev is the scratch host's own.
  host().run([] {
    const ToolResult result = runTool({toolPath("mkqxfs"), kArea});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("no loop devices"));
    EXPECT_FALSE(node::exists(kArea));
  });
}

TEST_F(ImageTest, LeftoverOfAKilledRunIsReplaced) {
  host().file("/var/lib/qx/private/101/.qx-image.new", "half").dir(kTree).run([] {
    showDevices();
    EXPECT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    EXPECT_THAT(node::listDirectory(kArea), ElementsAre(".qx-image", "fs"));
  });
}

TEST_F(ImageTest, MountThatFailsLeavesNothingMounted) {
  host().file("/var/lib/qx/root/101/in-the-way", "").run([] {
    showDevices();
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    EXPECT_EQ(qxctl({"mount", "101"}).status, 15);
    EXPECT_FALSE(node::treeIsMounted(kArea));
    EXPECT_EQ(loopFiles(), "");
    shell(
        "head -c 1M /dev/zero | dd of=/var/lib/qx/private/101/.qx-image conv=notrunc 2>/dev/null");
    const ToolResult broken = qxctl({"mount", "101"});
    EXPECT_EQ(broken.status, 1);
    EXPECT_THAT(broken.err, HasSubstr("is not an ext4 file system"));
  });
}

TEST_F(ImageTest, UsedTreeIsNamedAndCanBeUnmountedLater) {
  host().run([] {
    showDevices();
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    qxctl({"mount", "101"});
    const int user = open(kTree, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const ToolResult busy = qxctl({"umount", "101"});
    EXPECT_EQ(busy.status, 17);
    EXPECT_THAT(busy.err, HasSubstr("it is used by process"));
    EXPECT_EQ(qxctl({"destroy", "101"}).status, 17);
    EXPECT_TRUE(node::exists(kImage));
    close(user);
    EXPECT_EQ(qxctl({"umount", "101"}).status, 0);
    EXPECT_FALSE(node::treeIsMounted(kArea));
  });
}

class SubvolumeTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasLoopDevices() || !kernelHas("\tbtrfs\n")) GTEST_SKIP() << "no btrfs here";
  }
  static ScratchHost host(const std::string& more = "") {
    return ScratchHost()
        .file("/etc/qx/qx.conf", "STORAGE=btrfs\n")
        .file(kConf, more)
        .dir("/var/lib/qx/private");
  }
  static void mountBtrfs(bool quotas) {
    showDevices();
    shell(
        "truncate -s 400M /btrfs && mkfs.btrfs -q /btrfs >/dev/null && "
        "mount -o loop /btrfs /var/lib/qx/private");
    if (quotas) shell("btrfs quota enable /var/lib/qx/private");
  }
};

TEST_F(SubvolumeTest, LifeOfAContainerAsAMigrationLeadsIt) {
  host().run([] {
    mountBtrfs(false);
    EXPECT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    EXPECT_EQ(node::storageOf(kArea), Storage::kBtrfs);
    EXPECT_EQ(qxctl({"mount", "101"}).status, 0);
    node_test::makeSystemTree(kRoot);
    EXPECT_EQ(qxctl({"umount", "101"}).status, 0);
    EXPECT_EQ(qxctl({"convert", "101"}).status, 0);
    EXPECT_THAT(qxctl({"status", "101"}).out, HasSubstr("storage       btrfs\n"));
    // As systemd makes them, one in another.
    shell(
        "btrfs subvolume create /var/lib/qx/private/101/fs/srv >/dev/null && "
        "btrfs subvolume create /var/lib/qx/private/101/fs/srv/more >/dev/null && "
        "touch /var/lib/qx/private/101/fs/srv/more/file");
    const ToolResult destroyed = qxctl({"destroy", "101"});
    EXPECT_EQ(destroyed.status, 0) << destroyed.err;
    EXPECT_THAT(node::listDirectory("/var/lib/qx/private"), IsEmpty());
  });
}

TEST_F(SubvolumeTest, IsLimitedWhereQuotasAreOn) {
  host("DISKSPACE=51200:51200\n").run([] {
    mountBtrfs(true);
    ASSERT_EQ(runTool({toolPath("mkqxfs"), kArea}).status, 0);
    const std::string fill = std::string("head -c 70M /dev/urandom >") + kTree + "/f 2>/dev/null";
    EXPECT_NE(system(fill.c_str()), 0) << "70 MiB went where 50 are allowed";
    shell(std::string("rm ") + kTree + "/f && sync");
    qxctl({"set", "101", "DISKSPACE=204800:204800"});
    EXPECT_EQ(qxctl({"mount", "101"}).status, 0);
    EXPECT_EQ(system(fill.c_str()), 0) << "the limit did not follow the configuration";
    qxctl({"umount", "101"});
    EXPECT_EQ(qxctl({"destroy", "101"}).status, 0);
  });
}

TEST_F(SubvolumeTest, FromATemplateAndWithoutOneThatFails) {
  host("OSTEMPLATE=base\nDISKSPACE=51200\n")
      .file("/var/lib/qx/template/base/bin/sh", "shell", 0755)
      .run([] {
        mountBtrfs(true);
        shell("head -c 70M /dev/urandom >/var/lib/qx/template/base/large");
        EXPECT_EQ(qxctl({"create", "101"}).status, 1);
        EXPECT_THAT(node::listDirectory("/var/lib/qx/private"), IsEmpty());
        shell("rm /var/lib/qx/template/base/large");
        EXPECT_EQ(qxctl({"create", "101"}).status, 0);
        EXPECT_EQ(node::storageOf(kArea), Storage::kBtrfs);
        EXPECT_EQ(test_support::readFile(std::string(kTree) + "/bin/sh"), "shell");
      });
}

TEST_F(SubvolumeTest, IsRefusedWhereThereIsNoBtrfs) {
  host().run([] {
    const ToolResult result = runTool({toolPath("mkqxfs"), kArea});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("is on a file system of another type"));
    EXPECT_FALSE(node::exists(kArea));
  });
}

}  // namespace
