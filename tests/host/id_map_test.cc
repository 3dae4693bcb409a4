#include "host/id_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "host/error.h"
#include "host/mounts.h"
#include "host/place.h"
#include "node/lxc_config.h"
#include "support/scratch_host.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

host::Container withVars(const host::ShellVars& vars) {
  host::Container container;
  container.id = 101;
  container.root = "/var/lib/qx/root/101";
  container.privateArea = "/var/lib/qx/private/101";
  container.vars = vars;
  return container;
}

std::string refusal(const std::function<void()>& action) {
  try {
    action();
  } catch (const host::Error& error) {
    return error.what();
  }
  return "not refused";
}

TEST(IdMap, IsWhatTheConfigurationSays) {
  EXPECT_FALSE(host::idMapOf(withVars({{"UNPRIVILEGED", "no"}})));
  EXPECT_FALSE(host::idMapOf(withVars({{"UNPRIVILEGED", "no"}, {"UNPRIVILEGED_IDS", "bad"}})));
  const auto map =
      host::idMapOf(withVars({{"UNPRIVILEGED", "yes"}, {"UNPRIVILEGED_IDS", "200000:70000"}}));
  ASSERT_TRUE(map);
  EXPECT_EQ(map->first, 200000u);
  EXPECT_EQ(map->count, 70000u);
  EXPECT_EQ(host::idMapOf(withVars({{"UNPRIVILEGED", "yes"}}))->first, 1000000u);
}

TEST(IdMap, RefusesWordsAndRangesThatDoNotFit) {
  EXPECT_EQ(refusal([] {
              host::idMapOf(withVars({{"UNPRIVILEGED", "1"}}));
            }),
            "UNPRIVILEGED is '1': yes or no is expected");
  for (const char* text :
       {"200000", "200000:", ":65536", "0:65536", "65535:65536", "200000:65535", "x:65536",
        "4294967000:65536", "4294967295:65536", "200000:4294967295", "200000:65536:1"}) {
    EXPECT_THAT(refusal([text] {
                  host::idMapOf(withVars({{"UNPRIVILEGED", "yes"}, {"UNPRIVILEGED_IDS", text}}));
                }),
                HasSubstr("FIRST:COUNT is expected"))
        << text;
  }
}

TEST(IdMap, IsToldToLxcAfterTheSharedConfiguration) {
  const node::LxcItems items = node::lxcItems(withVars({{"UNPRIVILEGED", "yes"}}), {});
  EXPECT_THAT(items, Contains(Pair("lxc.idmap", "u 0 1000000 65536")));
  EXPECT_THAT(items, Contains(Pair("lxc.idmap", "g 0 1000000 65536")));
  EXPECT_THAT(items, Contains(Pair("lxc.cap.drop", HasSubstr("sys_rawio"))));
  EXPECT_EQ(items[1].second, "/usr/share/lxc/config/userns.conf");
  EXPECT_THAT(node::lxcItems(withVars({{"UNPRIVILEGED", "no"}}), {}),
              Not(Contains(Pair("lxc.idmap", testing::_))));
}

TEST(IdMap, IsSetAsideByOneLineForRoot) {
  const host::IdMap map{1000000, 65536};
  EXPECT_TRUE(host::setsAside("root:1000000:65536\n", map));
  EXPECT_TRUE(host::setsAside("web:1:5\n0:900000:200000\n", map));
  for (const char* text :
       {"", "web:1000000:65536", "root:1000000:65535", "root:1000001:65536", "root:1000000",
        "root:1000000:x", "root:1000000:30000\nroot:1030000:40000", "root:900000:100000"}) {
    EXPECT_FALSE(host::setsAside(text, map)) << text;
  }
}

TEST(IdChoice, NewContainersAreUnprivilegedWhereTheHostCan) {
  test_support::ScratchHost host;
  host.dir("/var/lib/qx/private/101/fs");
  host.run([] {
    const host::IdChoice choice = host::idChoiceOf(withVars({}));
    // The scratch host is a tmpfs, whose owners Linux 6.3 and newer can map.
    if (choice.why.find("set UNPRIVILEGED=no") != choice.why.npos) GTEST_SKIP() << choice.why;
    ASSERT_TRUE(choice.map) << choice.why;
    EXPECT_EQ(choice.map->first, 1000000u);
    EXPECT_EQ(choice.why, "this host can");
    EXPECT_TRUE(host::idChoiceOf(withVars({{"STORAGE", "ext4"}})).map);
  });
  host.tool("/usr/bin/newuidmap").run([] {
    const host::IdChoice choice = host::idChoiceOf(withVars({}));
    EXPECT_FALSE(choice.map);
    EXPECT_THAT(choice.why, HasSubstr("are not set aside for root in /etc/subuid"));
  });
}

TEST(IdChoice, ThatOfARegisteredContainerStays) {
  const struct {
    const char* marker;
    bool unprivileged;
  } rows[] = {{"REGISTERED=x\nSOURCE=files\n", false},
              {"REGISTERED=x\nSOURCE=files\nUNPRIVILEGED=no\n", false},
              {"REGISTERED=x\nSOURCE=files\nUNPRIVILEGED=yes\n", true}};
  for (const auto& row : rows) {
    test_support::ScratchHost().file("/var/lib/qx/private/101/.qx-registered", row.marker).run([&] {
      const host::IdChoice choice = host::idChoiceOf(withVars({}));
      EXPECT_EQ(choice.map.has_value(), row.unprivileged) << row.marker;
      EXPECT_EQ(choice.why, "it was registered so");
      EXPECT_FALSE(host::idMapOf(withVars({{"UNPRIVILEGED", "no"}})));
      EXPECT_TRUE(host::idMapOf(withVars({{"UNPRIVILEGED", "yes"}})));
    });
  }
}

TEST(IdMap, WithoutASetAsideRangeTheCommandIsTold) {
  test_support::ScratchHost()
      .tool("/usr/bin/newuidmap")
      .file("/etc/subuid", "root:1000000:65536\n")
      .file("/etc/subgid", "")
      .run([] {
        EXPECT_EQ(refusal([] {
                    host::requireSetAside({1000000, 65536});
                  }),
                  "the ids 1000000 to 1065535 of UNPRIVILEGED_IDS are not set aside for root in "
                  "/etc/subgid: 'usermod --add-subuids 1000000-1065535 --add-subgids "
                  "1000000-1065535 root' does that");
      });
}

TEST(IdMap, AHostThatLacksSetAsideIdsIsToldUnlessItWantsNone) {
  test_support::ScratchHost()
      .tool("/usr/bin/newuidmap")
      .file("/etc/subuid", "root:2000000:65536\n")
      .file("/etc/subgid", "root:2000000:65536\n")
      .run([] {
        EXPECT_THAT(host::missingIds({}), HasSubstr("'usermod --add-subuids 1000000-1065535"));
        EXPECT_EQ(host::missingIds({{"UNPRIVILEGED", "no"}}), "");
        EXPECT_EQ(host::missingIds({{"UNPRIVILEGED_IDS", "2000000:65536"}}), "");
      });
  test_support::ScratchHost().run([] { EXPECT_EQ(host::missingIds({}), ""); });
}

TEST(IdMapping, ShowsOtherOwnersAndNoDevicesAndIsUndoneLikeAMount) {
  test_support::ScratchHost().file("/tree/file", "").run([] {
    ASSERT_EQ(chown("/tree/file", 33, 1000), 0);
    ASSERT_EQ(mount("/tree", "/mnt", nullptr, MS_BIND, nullptr), 0);
    // The scratch host is a tmpfs, whose owners Linux 6.3 and newer can map.
    const std::string answer = refusal([] {
      host::mountMapped("/mnt", host::makeUserNamespace({1000000, 65536}));
    });
    if (answer.find("set UNPRIVILEGED=no") != answer.npos) GTEST_SKIP() << answer;
    ASSERT_EQ(answer, "not refused");
    struct stat shown {};
    ASSERT_EQ(stat("/mnt/file", &shown), 0);
    EXPECT_EQ(shown.st_uid, 1000033u);
    EXPECT_EQ(shown.st_gid, 1001000u);
    struct statvfs flags {};
    ASSERT_EQ(statvfs("/mnt", &flags), 0);
    EXPECT_TRUE(flags.f_flag & ST_NODEV);
    EXPECT_TRUE(host::isMapped("/mnt", "/tree"));
    ASSERT_EQ(umount("/mnt"), 0);
    EXPECT_FALSE(host::isMapped("/mnt", "/tree"));
  });
}

// The root of an unprivileged container has its group outside, and the path leads to it.
TEST(LetPass, OpensTheWayForOneGroupAlone) {
  test_support::ScratchHost().dir("/data", 0700).dir("/data/root/101").run([] {
    ASSERT_EQ(chmod("/data/root", 0700), 0);
    for (int again = 0; again < 2; ++again) {
      host::letPass("/data/root/101", 1000000);
      for (const char* directory : {"/data", "/data/root"}) {
        struct stat st {};
        ASSERT_EQ(stat(directory, &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0710u) << directory;
        EXPECT_EQ(st.st_gid, 1000000u);
        EXPECT_EQ(st.st_uid, 0u);
      }
    }
    EXPECT_THAT(refusal([] { host::letPass("/data/root/102", 2000000); }),
                HasSubstr("'/data' lets pass containers whose root is group 1000000"));
  });
}

TEST(IdMapping, OfAFileSystemThatCannotIsRefusedAndLeavesNothing) {
  test_support::ScratchHost().run([] {
    const size_t before = host::mountPoints().size();
    EXPECT_THAT(refusal([] {
                  host::mountMapped("/proc", host::makeUserNamespace({1000000, 65536}));
                }),
                HasSubstr("the kernel cannot show the files of /proc with the owners"));
    EXPECT_EQ(host::mountPoints().size(), before);
  });
}

}  // namespace
