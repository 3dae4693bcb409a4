#include "quota/quota_phys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "last_error.h"
#include "support/scratch_host.h"

using namespace QuotaMgmt;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Enabled {
  explicit Enabled(const char* partition)
      : result(quota_is_enabled_phys(partition, usr, grp, &mountPoint)) {}
  bool usr = false;
  bool grp = false;
  std::string mountPoint;
  int result;
};

ScratchHost hostWithMtab(const std::string& mtab) {
  ScratchHost host;
  host.dir("/data").file("/dev/disk", "").file("/etc/mtab", mtab);
  return host;
}

// Fake tools that print what they are, and the editors they were given.
void addQuotaTools(ScratchHost& host) {
  host.tool("/usr/sbin/repquota", {.script = "echo limits $*"});
  host.tool("/usr/sbin/edquota", {.script = "echo graces $VISUAL $EDITOR $*"});
  host.tool("/usr/sbin/setquota");
}

std::string call(const std::string& tool, std::string arguments) {
  for (char& c : arguments) {
    if (c == ' ') c = '\t';
  }
  return "/usr/sbin/" + tool + "\t" + arguments;
}

}  // namespace

TEST(QuotaPhys, OptionsOfThePartitionTellTheKinds) {
  const struct {
    const char* options;
    bool usr, grp;
  } rows[] = {
      {"rw", false, false},
      {"rw,quota", true, false},
      {"rw,usrquota", true, false},
      {"rw,grpquota", false, true},
      {"rw,usrquota,grpquota", true, true},
      {"rw,noquota,usrquotas,usrquota=x", false, false},
  };
  for (const auto& row : rows) {
    hostWithMtab("/dev/disk /data ext3 " + std::string(row.options) + " 0 0\n").run([&] {
      const Enabled enabled("/data");
      EXPECT_EQ(enabled.result, 0);
      EXPECT_EQ(enabled.usr, row.usr) << row.options;
      EXPECT_EQ(enabled.grp, row.grp) << row.options;
      EXPECT_EQ(enabled.mountPoint, "/data");
    });
  }
}

TEST(QuotaPhys, PartitionMayBeADeviceUnderAnyName) {
  ScratchHost host = hostWithMtab("none /proc proc rw 0 0\n/dev/disk /data ext3 rw,quota 0 0\n");
  host.symlink("/dev/by-name", "disk");
  host.run([] {
    for (const char* partition : {"/dev/disk", "/dev/by-name", "/dev/../dev/disk", "/data/."}) {
      const Enabled enabled(partition);
      EXPECT_EQ(enabled.result, 0) << partition;
      EXPECT_TRUE(enabled.usr) << partition;
      EXPECT_EQ(enabled.mountPoint, "/data") << partition;
    }
  });
}

TEST(QuotaPhys, FirstMatchingLineWins) {
  hostWithMtab("/dev/gone /data ext3 rw,grpquota 0 0\n/dev/disk /data ext3 rw,usrquota 0 0\n")
      .run([] {
        const Enabled enabled("/data");
        EXPECT_TRUE(enabled.grp);
        EXPECT_FALSE(enabled.usr);
      });
}

TEST(QuotaPhys, FlagsAreOnlyEverSet) {
  hostWithMtab("/dev/disk /data ext3 rw 0 0\n").run([] {
    bool usr = true;
    bool grp = true;
    std::string mountPoint;
    EXPECT_EQ(quota_is_enabled_phys("/data", usr, grp, &mountPoint), 0);
    EXPECT_TRUE(usr);
    EXPECT_TRUE(grp);
  });
}

TEST(QuotaPhys, MissingPartitionIsAnError) {
  hostWithMtab("").run([] {
    EXPECT_EQ(Enabled("/gone").result, -1);
    EXPECT_EQ(lastError(), "Partition or mount point '/gone' does not exist");
  });
}

TEST(QuotaPhys, MissingMountTableIsAnError) {
  ScratchHost host;
  host.run([] {
    unlink("/etc/mtab");
    EXPECT_EQ(Enabled("/").result, -1);
    EXPECT_EQ(lastError(), "Error reading '/etc/mtab': No such file or directory");
  });
}

TEST(QuotaPhys, PartitionThatIsNotMountedIsAnError) {
  hostWithMtab("/dev/disk /elsewhere ext3 rw 0 0\n").run([] {
    EXPECT_EQ(Enabled("/data").result, -1);
    EXPECT_EQ(lastError(), "Partition or mount point '/data' is missing from /etc/mtab");
  });
}

TEST(QuotaPhys, ReportsOfBothKindsAreConcatenatedUsersFirst) {
  ScratchHost host = hostWithMtab("/dev/disk /data ext3 rw,usrquota,grpquota 0 0\n");
  addQuotaTools(host);
  host.run([&] {
    std::string limits = "old", graces = "old";
    EXPECT_EQ(quota_get_phys("/dev/disk", limits, graces), 0) << lastError();
    EXPECT_EQ(limits, "limits -un /data\nlimits -gn /data\n");
    EXPECT_EQ(graces, "graces cat cat -utf /data\ngraces cat cat -gtf /data\n");
    EXPECT_THAT(host.calls(),
                ElementsAre(call("repquota", "-un /data"), call("edquota", "-utf /data"),
                            call("repquota", "-gn /data"), call("edquota", "-gtf /data")));
  });
}

TEST(QuotaPhys, MountPointThatAShellWouldActOnReachesNone) {
  for (const std::string name : {"/mnt/$(touch${IFS}/ran)", "/mnt/a;touch${IFS}/ran;",
                                 "/mnt/`touch${IFS}/ran`", "/mnt/a\\040b"}) {
    ScratchHost host = hostWithMtab("/dev/disk " + name + " ext3 rw,usrquota,grpquota 0 0\n");
    addQuotaTools(host);
    host.run([&] {
      std::string limits, graces;
      const std::string refusal =
          "Mount point '" + name + "' holds characters that cannot be passed to a command";
      EXPECT_EQ(quota_get_phys("/dev/disk", limits, graces), -1);
      EXPECT_EQ(lastError(), refusal);
      EXPECT_EQ(quota_put_phys("/dev/disk", Quotas(), Quotas()), -1);
      EXPECT_EQ(lastError(), refusal);
      EXPECT_THAT(host.calls(), IsEmpty());
      EXPECT_NE(access("/ran", F_OK), 0);
    });
  }
}

TEST(QuotaPhys, OneKindAloneIsReportedAlone) {
  const struct {
    const char* options;
    const char* limits;
    const char* graces;
  } rows[] = {
      {"usrquota", "limits -un /data\n", "graces cat cat -utf /data\n"},
      {"grpquota", "limits -gn /data\n", "graces cat cat -gtf /data\n"},
      {"rw", "", ""},
  };
  for (const auto& row : rows) {
    ScratchHost host = hostWithMtab("/dev/disk /data ext3 " + std::string(row.options) + " 0 0\n");
    addQuotaTools(host);
    host.run([&] {
      std::string limits = "old", graces = "old";
      EXPECT_EQ(quota_get_phys("/data", limits, graces), 0);
      EXPECT_EQ(limits, row.limits);
      EXPECT_EQ(graces, row.graces);
    });
  }
}

TEST(QuotaPhys, FailedCheckLeavesTheReportsAlone) {
  hostWithMtab("").run([] {
    std::string limits = "old", graces = "old";
    EXPECT_EQ(quota_get_phys("/data", limits, graces), -1);
    EXPECT_EQ(lastError(), "Partition or mount point '/data' is missing from /etc/mtab");
    EXPECT_EQ(limits, "old");
  });
}

TEST(QuotaPhys, FirstFailingToolEndsTheDump) {
  const struct {
    const char* tool;
    const char* letter;
    const char* command;
  } rows[] = {
      {"repquota", "-un", "repquota -un /data"},
      {"edquota", "-utf", "VISUAL=cat EDITOR=cat edquota -utf /data"},
      {"repquota", "-gn", "repquota -gn /data"},
      {"edquota", "-gtf", "VISUAL=cat EDITOR=cat edquota -gtf /data"},
  };
  for (const auto& row : rows) {
    ScratchHost host = hostWithMtab("/dev/disk /data ext3 usrquota,grpquota 0 0\n");
    addQuotaTools(host);
    host.tool(
        "/usr/sbin/" + std::string(row.tool),
        {.script = "if [ $1 = " + std::string(row.letter) + " ]; then echo bad >&2; exit 1; fi"});
    host.run([&] {
      std::string limits, graces;
      EXPECT_EQ(quota_get_phys("/data", limits, graces), -1);
      EXPECT_EQ(lastError(), "Error running '" + std::string(row.command) + "':\nbad\n");
      EXPECT_EQ(host.calls().back(), call(row.tool, row.letter + std::string(" /data")));
    });
  }
}

TEST(QuotaPhys, PutChangesWhatDiffersAndUsesTheUsersGracesForBoth) {
  ScratchHost host = hostWithMtab("/dev/disk /data ext3 usrquota,grpquota 0 0\n");
  addQuotaTools(host);
  host.tool("/usr/sbin/repquota",
            {.script = "if [ $1 = -un ]; then echo 'user quotas'; else echo "
                       "'group quotas'; fi; echo -----; echo '#5 -- 1 2 3 4 5 6'"});
  host.run([&] {
    Quotas users, groups;
    users.entries[5] = {2, 3, 0, 5, 6, 0};
    users.entries[6] = {20, 30, 0, 50, 60, 0};
    users.blockGrace = 7;
    users.inodeGrace = 8;
    groups.blockGrace = 9;
    EXPECT_EQ(quota_put_phys("/data", users, groups), 0) << lastError();
    auto calls = host.calls();
    calls.erase(calls.begin(), calls.begin() + 4);
    EXPECT_THAT(
        calls,
        ElementsAre(call("setquota", "-u 6 20 30 50 60 /data"), call("setquota", "-tu 7 8 /data"),
                    call("setquota", "-g 5 0 0 0 0 /data"), call("setquota", "-tg 7 8 /data")));
  });
}

TEST(QuotaPhys, PutLeavesAKindThatIsOffAlone) {
  ScratchHost host = hostWithMtab("/dev/disk /data ext3 grpquota 0 0\n");
  addQuotaTools(host);
  host.run([&] {
    Quotas users, groups;
    users.entries[6] = {20, 30, 0, 50, 60, 0};
    EXPECT_EQ(quota_put_phys("/data", users, groups), 0) << lastError();
    auto calls = host.calls();
    calls.erase(calls.begin(), calls.begin() + 2);
    EXPECT_THAT(calls, ElementsAre(call("setquota", "-tg 0 0 /data")));
  });
}

TEST(QuotaPhys, PutWithoutAnyKindIsRefused) {
  ScratchHost host = hostWithMtab("/dev/disk /data ext3 rw 0 0\n");
  addQuotaTools(host);
  host.run([&] {
    EXPECT_EQ(quota_put_phys("/data", Quotas(), Quotas()), -1);
    EXPECT_EQ(lastError(), "Quota is not enabled");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(QuotaPhys, PutOnAMissingPartitionIsRefused) {
  hostWithMtab("").run([] {
    EXPECT_EQ(quota_put_phys("/gone", Quotas(), Quotas()), -1);
    EXPECT_EQ(lastError(), "Partition or mount point '/gone' does not exist");
  });
}

TEST(QuotaPhys, FirstFailingCommandEndsThePut) {
  const char* const commands[] = {"-u 5 0 0 0 0 /data", "-u 6 1 2 3 4 /data", "-tu 0 0 /data",
                                  "-g 7 1 2 3 4 /data"};
  for (const std::string command : commands) {
    ScratchHost host = hostWithMtab("/dev/disk /data ext3 usrquota,grpquota 0 0\n");
    addQuotaTools(host);
    host.tool(
        "/usr/sbin/repquota",
        {.script =
             "if [ $1 = -un ]; then echo 'user quotas'; echo -----; echo '#5 -- 1 2 3 4 5 6'; fi"});
    host.tool("/usr/sbin/setquota",
              {.script = "if [ \"$*\" = '" + command + "' ]; then echo refused >&2; exit 1; fi"});
    host.run([&] {
      Quotas users, groups;
      users.entries[6] = {1, 2, 0, 3, 4, 0};
      groups.entries[7] = {1, 2, 0, 3, 4, 0};
      EXPECT_EQ(quota_put_phys("/data", users, groups), -1);
      EXPECT_EQ(lastError(), "Error running 'setquota " + command + "':\nrefused\n");
      EXPECT_EQ(host.calls().back(), call("setquota", command));
    });
  }
}
