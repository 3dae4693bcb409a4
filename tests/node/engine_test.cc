#include "node/engine.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/descriptors.h"
#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/mounts.h"
#include "host/state.h"
#include "host/text.h"
#include "node/private_area.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using host::Error;
using host::ExitCode;
using node::Outcome;
using test_support::kArea;
using test_support::kConf;
using test_support::kRoot;
using test_support::ScratchHost;
using testing::HasSubstr;

ScratchHost hostWithContainer(const std::string& config = "") {
  ScratchHost host;
  host.file(kConf, config).file("/var/lib/qx/private/101/fs/etc/motd", "hello");
  host.file("/var/lib/qx/private/101/fs/bin/sh", "", 0755);
  return host;
}

ExitCode codeOf(const std::function<void()>& action, std::string* text = nullptr) {
  try {
    action();
  } catch (const Error& error) {
    if (text != nullptr) *text = error.what();
    return error.code();
  }
  return ExitCode::kOk;
}

void pretendRunning() {
  host::makeDirectories("/run/qx");
  const auto stat = host::readFile(host::textf("/proc/%d/stat", getpid()));
  host::replaceFile("/run/qx/101.init",
                    host::textf("%d %llu\n", getpid(), host::parseStartTime(*stat).value()), 0644);
}

TEST(Mount, ShowsTheTreeAtTheRootAndUmountHidesIt) {
  hostWithContainer().run([] {
    const host::Container container = host::loadContainer(101);
    EXPECT_EQ(node::mountContainer(container), Outcome::kDone);
    EXPECT_EQ(test_support::readFile(std::string(kRoot) + "/etc/motd"), "hello");
    EXPECT_FALSE(host::exists(std::string(kRoot) + "/.ostemplate"));
    EXPECT_EQ(node::mountContainer(container), Outcome::kAlready);
    node::umountContainer(container);
    EXPECT_FALSE(host::isMounted(container));
    EXPECT_FALSE(host::exists(std::string(kRoot) + "/etc/motd"));
    EXPECT_EQ(codeOf([&] { node::umountContainer(container); }), ExitCode::kNotMounted);
  });
}

// Nobody of the host runs a set-id program, or opens a device file, out of a container.
TEST(Mount, IsOfNoUseToOtherUsersOfTheHost) {
  hostWithContainer().run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    struct statvfs flags {};
    ASSERT_EQ(statvfs(kRoot, &flags), 0);
    EXPECT_TRUE(flags.f_flag & ST_NOSUID);
    EXPECT_TRUE(flags.f_flag & ST_NODEV);
    ASSERT_EQ(statvfs(container.tree().c_str(), &flags), 0);
    EXPECT_FALSE(flags.f_flag & ST_NODEV) << "the tree's own mount is not ours to change";
    for (const char* directory :
         {"/var/lib/qx/private", "/var/lib/qx/root", "/var/lib/qx/template"}) {
      struct stat st {};
      ASSERT_EQ(stat(directory, &st), 0);
      EXPECT_EQ(st.st_mode & 077, 0u) << directory;
    }
    node::umountContainer(container);
  });
}

TEST(Mount, WithoutATreeSaysWhatIsMissing) {
  ScratchHost().file(kConf, "").run([] {
    std::string text;
    EXPECT_EQ(codeOf([] { node::mountContainer(host::loadContainer(101)); }, &text),
              ExitCode::kNotFound);
    EXPECT_THAT(text, HasSubstr("there is no directory /var/lib/qx/private/101"));
  });
  ScratchHost().file(kConf, "").dir(kArea).run([] {
    std::string text;
    EXPECT_EQ(codeOf([] { node::mountContainer(host::loadContainer(101)); }, &text),
              ExitCode::kNotFound);
    EXPECT_THAT(text, HasSubstr("mkqxfs"));
  });
}

TEST(Mount, RootWithFilesOrAForeignMountIsRefused) {
  hostWithContainer().file("/var/lib/qx/root/101/file", "").run([] {
    EXPECT_EQ(codeOf([] { node::mountContainer(host::loadContainer(101)); }), ExitCode::kExists);
  });
  hostWithContainer().dir(kRoot).dir("/data").run([] {
    ASSERT_EQ(mount("/data", kRoot, nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(codeOf([] { node::mountContainer(host::loadContainer(101)); }), ExitCode::kBusy);
  });
}

/// As on every host that systemd has booted.
void shareEveryMount() { ASSERT_EQ(mount(nullptr, "/", nullptr, MS_SHARED | MS_REC, nullptr), 0); }

TEST(Mount, WhatIsMountedOnTheRootDoesNotAppearOnTheTree) {
  hostWithContainer().dir("/data").run([] {
    shareEveryMount();
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    ASSERT_EQ(mount("/data", kRoot, nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(host::countMountsAt(host::mountPoints(), container.tree()), 0u);
    EXPECT_TRUE(host::exists(container.tree() + "/etc/motd"));
    node::umountContainer(container);
    EXPECT_FALSE(host::isMounted(container));
  });
}

TEST(Mount, OfMappedOwnersLeavesTheTreesOwnersAlone) {
  hostWithContainer().run([] {
    shareEveryMount();
    const host::Container container = host::loadContainer(101);
    // A second time, as after a guest that has shut itself down.
    for (int round = 0; round < 2; ++round) {
      node::mountContainer(container);
      host::mountMapped(container.root, host::makeUserNamespace({}));
      EXPECT_TRUE(host::isMapped(container.root, container.tree()));
      struct stat st {};
      ASSERT_EQ(stat(container.tree().c_str(), &st), 0);
      EXPECT_EQ(st.st_uid, 0u);
    }
    node::umountContainer(container);
    EXPECT_FALSE(host::isMounted(container));
  });
}

// As systemd starts a service while the container runs: it gets a copy of every mount, and the
// container's files stay in use until it has none.
TEST(Umount, TakesMappedOwnersFromServicesThatWereStartedMeanwhile) {
  hostWithContainer().run([] {
    shareEveryMount();
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    host::mountMapped(container.root, host::makeUserNamespace({}));
    host::FdPair begun = host::makePipe(), unmounted = host::makePipe();
    const pid_t service = fork();
    if (service == 0) {
      char byte = 0;
      const bool apart = unshare(CLONE_NEWNS) == 0 &&
                         mount(nullptr, "/", nullptr, MS_SLAVE | MS_REC, nullptr) == 0 &&
                         host::isMounted(container) && write(begun.second.get(), "b", 1) == 1 &&
                         read(unmounted.first.get(), &byte, 1) == 1;
      _exit(!apart ? 2 : host::isMounted(container) ? 1 : 0);
    }
    char byte = 0;
    begun.second.reset();
    ASSERT_EQ(read(begun.first.get(), &byte, 1), 1);
    node::umountContainer(container);
    ASSERT_EQ(write(unmounted.second.get(), "u", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(service, &status, 0), service);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: still mounted there, 2: could not try";
  });
}

TEST(Umount, BusyRootNamesItsUser) {
  hostWithContainer().run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    {
      const host::Fd open(::open((std::string(kRoot) + "/etc/motd").c_str(), O_RDONLY));
      std::string text;
      EXPECT_EQ(codeOf([&] { node::umountContainer(container); }, &text), ExitCode::kBusy);
      EXPECT_THAT(text, HasSubstr(host::textf("process %d (", getpid())));
      EXPECT_TRUE(host::isMounted(container));
    }
    ASSERT_EQ(mount("none", (std::string(kRoot) + "/bin").c_str(), "tmpfs", 0, nullptr), 0);
    std::string text;
    EXPECT_EQ(codeOf([&] { node::umountContainer(container); }, &text), ExitCode::kBusy);
    EXPECT_THAT(text, HasSubstr("the mount /var/lib/qx/root/101/bin"));
  });
}

TEST(Umount, UndoesEveryMountOnTheRoot) {
  hostWithContainer().run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    ASSERT_EQ(mount(container.tree().c_str(), kRoot, nullptr, MS_BIND, nullptr), 0);
    node::umountContainer(container);
    EXPECT_FALSE(host::isMounted(container));
  });
}

TEST(RunningContainer, IsNeitherUnmountedNorDestroyed) {
  hostWithContainer().dir("/run/qx").run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    pretendRunning();
    EXPECT_EQ(codeOf([&] { node::umountContainer(container); }), ExitCode::kBusy);
    EXPECT_EQ(codeOf([&] { node::destroyContainer(container); }), ExitCode::kBusy);
    EXPECT_TRUE(host::exists(kConf));
    EXPECT_TRUE(host::isMounted(container));
  });
}

TEST(Create, TakesTheTemplateOfTheConfigurationAndRegistersASystem) {
  ScratchHost()
      .file(kConf, "OSTEMPLATE=\".tiny\"\n")
      .file("/var/lib/qx/template/tiny/bin/sh", "", 0755)
      .run([] {
        const host::Container container = host::loadContainer(101);
        node::createContainer(container);
        EXPECT_TRUE(host::exists("/var/lib/qx/private/101/fs/bin/sh"));
        ASSERT_TRUE(node::registration(container));
        EXPECT_EQ(node::registration(container)->source, "template .tiny");
        EXPECT_EQ(codeOf([&] { node::createContainer(container); }), ExitCode::kExists);
      });
}

TEST(Create, BaseTemplateIsNotRegisteredUntilItIsConverted) {
  ScratchHost().file(kConf, "OSTEMPLATE=base\n").dir("/var/lib/qx/template/base/etc").run([] {
    const host::Container container = host::loadContainer(101);
    node::createContainer(container);
    EXPECT_FALSE(node::registration(container));
    EXPECT_EQ(codeOf([&] { node::convertContainer(container); }), ExitCode::kNotFound);
    host::makeDirectories("/var/lib/qx/private/101/fs/bin");
    host::replaceFile("/var/lib/qx/private/101/fs/bin/sh", "", 0755);
    EXPECT_EQ(node::convertContainer(container), Outcome::kDone);
    EXPECT_EQ(node::convertContainer(container), Outcome::kAlready);
  });
}

TEST(Create, WithoutATemplateNameIsRefused) {
  ScratchHost().file(kConf, "").run([] {
    EXPECT_EQ(codeOf([] { node::createContainer(host::loadContainer(101)); }),
              ExitCode::kBadConfig);
  });
}

TEST(Destroy, RemovesAMountedContainerWithoutATrace) {
  hostWithContainer().run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    node::destroyContainer(container);
    for (const char* path : {kConf, kRoot, kArea}) EXPECT_FALSE(host::exists(path)) << path;
    EXPECT_EQ(codeOf([&] { node::destroyContainer(host::findContainer(101)); }),
              ExitCode::kNotFound);
  });
}

TEST(Destroy, BusyContainerIsKeptWhole) {
  hostWithContainer().run([] {
    const host::Container container = host::loadContainer(101);
    node::mountContainer(container);
    const host::Fd open(::open((std::string(kRoot) + "/etc").c_str(), O_RDONLY));
    EXPECT_EQ(codeOf([&] { node::destroyContainer(container); }), ExitCode::kBusy);
    EXPECT_TRUE(host::exists(kConf));
    EXPECT_TRUE(host::exists("/var/lib/qx/private/101/fs/etc/motd"));
  });
}

TEST(Destroy, ConfigurationOrPrivateAreaAloneIsEnough) {
  ScratchHost().file(kConf, "").run([] {
    node::destroyContainer(host::findContainer(101));
    EXPECT_FALSE(host::exists(kConf));
  });
  ScratchHost().file("/var/lib/qx/private/101/fs/x", "").run([] {
    node::destroyContainer(host::findContainer(101));
    EXPECT_FALSE(host::exists(kArea));
  });
}

TEST(Destroy, FilesBelowTheUnmountedRootAreNotTouched) {
  hostWithContainer().file("/var/lib/qx/root/101/note", "mine").run([] {
    node::destroyContainer(host::loadContainer(101));
    EXPECT_EQ(test_support::readFile("/var/lib/qx/root/101/note"), "mine");
    EXPECT_FALSE(host::exists(kArea));
  });
}

}  // namespace
