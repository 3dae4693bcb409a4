#include "hwcalc/quota_ids.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/request.h"
#include "hwcalc/hw_calc.h"
#include "support/scratch_host.h"

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

hwcalc::QuotaDevices devicesOf(const std::string& table) {
  return hwcalc::findQuotaDevices(hwcalc::parseMountTable(table));
}

std::string reportOf(const std::string& kind, const std::vector<unsigned>& ids) {
  std::string report = "*** Report for " + kind + " quotas on device /dev/x\n----\n";
  for (const unsigned id : ids) report += "#" + std::to_string(id) + " -- 1 2 3 4 5 6\n";
  return report + "\n";
}

// Prints the users' or the groups' report of the mount point in its last argument.
std::string repquotaScript() {
  return "case \"$*\" in\n"
         "'-un /') cat /reports/root-users ;;\n"
         "'-gn /') cat /reports/root-groups ;;\n"
         "'-un /home') cat /reports/home-users ;;\n"
         "*) echo \"no quota for $*\" >&2; exit 1 ;;\n"
         "esac\n";
}

ScratchHost quotaHost(const std::string& mtab) {
  ScratchHost host;
  host.file("/etc/mtab", mtab);
  host.file("/dev/sda1", "1").file("/dev/sda2", "2").file("/dev/sda3", "3");
  host.file("/reports/root-users", reportOf("user", {0, 1000, 1001}));
  host.file("/reports/root-groups", reportOf("group", {0, 100}));
  host.file("/reports/home-users", reportOf("user", {1001, 1002}));
  host.tool("/usr/sbin/repquota", {.script = repquotaScript()});
  host.tool("/usr/sbin/edquota");
  return host;
}

void expectIds(const std::string& mtab, unsigned expected) {
  quotaHost(mtab).run([&] {
    QXHWCalc calculator;
    QXHWCalc::PhysParams params;
    EXPECT_EQ(calculator.calcQuotaUGIDLimit(&params), QXHWCalc::EC_OK);
    EXPECT_EQ(params.quotaugidlimit, expected);
    EXPECT_THAT(params.notes.warnings, IsEmpty());
    EXPECT_EQ(QXL::QXLRequestContextPrototype::getCurrent()->getLastErrorText(), "");
  });
}

}  // namespace

TEST(QuotaDevices, AreThoseWithAQuotaOption) {
  const auto found = devicesOf(
      "/dev/sda1 / ext3 rw,usrquota 0 0\n/dev/sda2 /a ext3 rw,grpquota 0 0\n"
      "/dev/sda3 /b ext3 rw,noquota,usrquota=x 0 0\n");
  EXPECT_THAT(found.devices, ElementsAre("/dev/sda1", "/dev/sda2"));
  EXPECT_FALSE(found.plainQuota);
}

TEST(QuotaDevices, PlainOptionIsNotedWhenItIsTheFirst) {
  EXPECT_TRUE(devicesOf("/dev/sda1 / ext3 rw,quota,grpquota 0 0\n").plainQuota);
  EXPECT_FALSE(devicesOf("/dev/sda1 / ext3 rw,grpquota,quota 0 0\n").plainQuota);
}

TEST(QuotaIds, UsersAndGroupsAddUp) {
  EXPECT_EQ(hwcalc::countQuotaIds({0, 1, 2}, {0, 1}, false), 5u);
}

TEST(QuotaIds, PlainQuotaCountsUsersTwice) {
  EXPECT_EQ(hwcalc::countQuotaIds({0, 1, 2}, {0, 1}, true), 6u);
}

TEST(CalcQuotaUGIDLimit, NoQuotasGiveZero) { expectIds("/dev/sda1 / ext3 rw 0 0\n", 0); }

TEST(CalcQuotaUGIDLimit, DistinctIdsOfAllDevicesAreCounted) {
  expectIds("/dev/sda1 / ext3 rw,usrquota,grpquota 0 0\n/dev/sda2 /home ext3 rw,usrquota 0 0\n",
            4 + 2);
}

TEST(CalcQuotaUGIDLimit, PlainQuotaCountsUsersTwice) {
  expectIds("/dev/sda1 / ext3 rw,quota 0 0\n", 6);
}

TEST(CalcQuotaUGIDLimit, DeviceThatFailsIsSkippedSilently) {
  expectIds(
      "/dev/missing /m ext3 rw,usrquota 0 0\n/dev/sda3 /opt ext3 rw,usrquota 0 0\n"
      "/dev/sda2 /home ext3 rw,usrquota 0 0\n",
      2);
}

TEST(CalcQuotaUGIDLimit, MissingMountTableIsAnError) {
  ScratchHost().run([] {
    QXHWCalc calculator;
    QXHWCalc::PhysParams params;
    EXPECT_EQ(calculator.calcQuotaUGIDLimit(&params), 4u);
    EXPECT_STREQ(calculator.errorText, "Error opening '/etc/mtab': No such file or directory");
  });
}
