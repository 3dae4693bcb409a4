#include "quota/quota_vz.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "last_error.h"
#include "support/scratch_host.h"

using namespace QuotaMgmt;
using namespace test_support;
using testing::ElementsAre;

namespace {

const char kTool[] = "/usr/sbin/qxquota";

// A call of the tool, its arguments separated by blanks, as the log has it.
std::string call(std::string arguments) {
  for (char& c : arguments) {
    if (c == ' ') c = '\t';
  }
  return kTool + ("\t" + arguments);
}

// A tool whose "stat 101" exits so.
FakeTool statExits(int status) {
  return {.script =
              "[ \"$*\" = 'stat 101' ] && { echo oops >&2; exit " + std::to_string(status) + "; }"};
}

// A tool that shows a container with these objects.
FakeTool shows(const std::string& objects) {
  return {.script =
              "if [ \"$*\" = 'stat 101 -t' ]; then cat <<'END'\n"
              "User/group grace times\nuser 1 2\ngroup 3 4\nUser/group objects\n" +
              objects + "END\nfi"};
}

}  // namespace

TEST(QuotaVz, ExitCodesOfStatTellWhetherQuotaIsOn) {
  const struct {
    int status;
    bool on;
  } rows[] = {{0, true}, {10, true}, {6, false}, {9, false}};
  for (const auto& row : rows) {
    ScratchHost host;
    host.tool(kTool, statExits(row.status));
    host.run([&] {
      bool on = !row.on;
      EXPECT_EQ(quota_is_enabled_vz(101, on), 0) << row.status;
      EXPECT_EQ(on, row.on) << row.status;
      EXPECT_EQ(lastError(), "");
      EXPECT_THAT(host.calls(), ElementsAre(call("stat 101")));
    });
  }
}

TEST(QuotaVz, OtherExitCodeOfStatIsAnError) {
  ScratchHost host;
  host.tool(kTool, statExits(7));
  host.run([] {
    bool on = true;
    EXPECT_EQ(quota_is_enabled_vz(101, on), -1);
    EXPECT_FALSE(on);
    EXPECT_EQ(lastError(), "Error running 'qxquota stat 101':\noops\n");
    std::string out = "as it was";
    EXPECT_EQ(quota_get_vz(101, out), -1);
    EXPECT_EQ(out, "as it was");
  });
}

TEST(QuotaVz, MissingToolIsAnError) {
  ScratchHost host;
  host.run([] {
    bool on = true;
    EXPECT_EQ(quota_is_enabled_vz(101, on), -1);
    EXPECT_THAT(lastError(), testing::StartsWith("Error running 'qxquota stat 101':\n"));
  });
}

TEST(QuotaVz, NothingIsReadWhileQuotaIsOff) {
  ScratchHost host;
  host.tool(kTool, statExits(6));
  host.run([&] {
    std::string out = "as it was";
    EXPECT_EQ(quota_get_vz(101, out), 0);
    EXPECT_EQ(out, "as it was");
    EXPECT_THAT(host.calls(), ElementsAre(call("stat 101")));
  });
}

TEST(QuotaVz, StatusOfStatWithObjectsIsJudgedByItsOwnCodes) {
  const struct {
    int status;
    bool good;
  } rows[] = {{0, true}, {9, true}, {10, true}, {6, false}, {1, false}};
  for (const auto& row : rows) {
    ScratchHost host;
    host.tool(kTool,
              {.script = "if [ \"$*\" = 'stat 101 -t' ]; then echo text; echo oops >&2; exit " +
                         std::to_string(row.status) + "; fi"});
    host.run([&] {
      std::string out = "before";
      EXPECT_EQ(quota_get_vz(101, out), row.good ? 0 : -1) << row.status;
      EXPECT_EQ(out, row.good ? "text\n" : "before") << row.status;
      EXPECT_EQ(lastError(), row.good ? "" : "Error running 'qxquota stat 101 -t':\noops\n");
    });
  }
}

TEST(QuotaVz, EqualRecordsSetGracesOnly) {
  ScratchHost host;
  host.tool(kTool, shows("user 5 0 1 2 3 0 4 5 6\ngroup 7 0 1 1 0 0 1 1 0\n"));
  host.run([&] {
    Quotas users, groups;
    users.entries[5] = {1, 2, 3, 4, 5, 6};
    groups.entries[7] = {1, 1, 0, 1, 1, 0};
    users.blockGrace = 604800;
    users.inodeGrace = 3600;
    // The group record's graces are intentionally not used.
    groups.blockGrace = 11;
    groups.inodeGrace = 12;
    EXPECT_EQ(quota_put_vz(101, users, groups), 0) << lastError();
    EXPECT_THAT(host.calls(), ElementsAre(call("stat 101"), call("stat 101 -t"), call("stat 101"),
                                          call("setlimit2 101 -tu 604800 3600"),
                                          call("setlimit2 101 -tg 604800 3600")));
  });
}

TEST(QuotaVz, UnwantedIdsAreClearedBeforeNewLimitsAreSetUsersBeforeGroups) {
  ScratchHost host;
  host.tool(kTool, shows("user 9 0 1 1 0 0 1 1 0\nuser 3 0 1 1 0 0 1 1 0\n"
                         "group 8 0 1 1 0 0 1 1 0\n"));
  host.run([&] {
    Quotas users, groups;
    users.entries[20] = {1, 2, 77, 3, 4, 78};
    users.entries[4] = {5000000000, 6, 0, 7, 8, 0};
    groups.entries[4294967295u] = {1, 2, 0, 3, 4, 0};
    EXPECT_EQ(quota_put_vz(101, users, groups), 0) << lastError();
    EXPECT_THAT(
        host.calls(),
        ElementsAre(call("stat 101"), call("stat 101 -t"), call("stat 101"),
                    call("setlimit2 101 -u 3 0 0 0 0"), call("setlimit2 101 -u 9 0 0 0 0"),
                    call("setlimit2 101 -u 4 5000000000 6 7 8"),
                    call("setlimit2 101 -u 20 1 2 3 4"), call("setlimit2 101 -tu 0 0"),
                    call("setlimit2 101 -g 8 0 0 0 0"), call("setlimit2 101 -g 4294967295 1 2 3 4"),
                    call("setlimit2 101 -tg 0 0")));
  });
}

TEST(QuotaVz, ContainerWithoutQuotaIsRefusedBeforeAnythingIsSet) {
  ScratchHost host;
  host.tool(kTool, statExits(6));
  host.run([&] {
    EXPECT_EQ(quota_put_vz(101, Quotas(), Quotas()), -1);
    EXPECT_EQ(lastError(), "Quota is not enabled");
    EXPECT_THAT(host.calls(), ElementsAre(call("stat 101"), call("stat 101")));
  });
}

TEST(QuotaVz, FailedStatEndsThePut) {
  ScratchHost host;
  host.tool(kTool, statExits(1));
  host.run([&] {
    EXPECT_EQ(quota_put_vz(101, Quotas(), Quotas()), -1);
    EXPECT_EQ(lastError(), "Error running 'qxquota stat 101':\noops\n");
    EXPECT_THAT(host.calls(), ElementsAre(call("stat 101")));
  });
}

TEST(QuotaVz, FailedSecondStatEndsThePut) {
  ScratchHost host;
  host.tool(kTool, {.script = "if [ \"$*\" = 'stat 101 -t' ]; then touch /tmp/read; fi\n"
                              "if [ \"$*\" = 'stat 101' ] && [ -e /tmp/read ]; then exit 1; fi"});
  host.run([&] {
    EXPECT_EQ(quota_put_vz(101, Quotas(), Quotas()), -1);
    EXPECT_EQ(lastError(), "Error running 'qxquota stat 101':\n");
  });
}

TEST(QuotaVz, FirstFailingCommandEndsThePut) {
  // One run per command that can fail; each is the last one called.
  const char* const commands[] = {"setlimit2 101 -u 3 0 0 0 0", "setlimit2 101 -u 4 5 6 7 8",
                                  "setlimit2 101 -tu 0 0", "setlimit2 101 -g 9 1 2 3 4"};
  for (const std::string command : commands) {
    ScratchHost host;
    FakeTool tool = shows("user 3 0 1 1 0 0 1 1 0\n");
    tool.script += "\nif [ \"$*\" = '" + command + "' ]; then echo refused >&2; exit 2; fi";
    host.tool(kTool, tool);
    host.run([&] {
      Quotas users, groups;
      users.entries[4] = {5, 6, 0, 7, 8, 0};
      groups.entries[9] = {1, 2, 0, 3, 4, 0};
      EXPECT_EQ(quota_put_vz(101, users, groups), -1);
      EXPECT_EQ(lastError(), "Error running 'qxquota " + command + "':\nrefused\n");
      EXPECT_EQ(host.calls().back(), call(command));
    });
  }
}
