// What the quota tools of a real server printed (tests/quota/record), read the way a
// migration reads it, against what setquota was told there.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "quota/quota_dump.h"
#include "quota/quota_phys.h"
#include "quota/quota_report.h"
#include "support/scratch_host.h"

using namespace QuotaMgmt;
using namespace test_support;

namespace {

std::string fileText(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  EXPECT_FALSE(text.str().empty()) << path;
  return text.str();
}

std::string recorded(const std::string& name) { return fileText(QX_RECORDED_DIR "/" + name); }

// The lines of tests/e2e/quotas/told that say what must arrive.
struct Told {
  std::map<std::string, Quotas> kinds;
  std::set<std::pair<std::string, unsigned>> idle;
};

Told told() {
  Told result;
  std::istringstream lines(fileText(QX_TOLD_FILE));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string verb, kind;
    words >> verb >> kind;
    Quotas& quotas = result.kinds[kind];
    unsigned id = 0;
    if (verb == "grace") words >> quotas.blockGrace >> quotas.inodeGrace;
    if (verb == "limits") {
      words >> id;
      Quota& quota = quotas.entries[id];
      words >> quota.blockSoft >> quota.blockHard >> quota.inodeSoft >> quota.inodeHard;
    }
    if (verb == "idle") {
      words >> id;
      result.idle.insert({kind, id});
    }
  }
  return result;
}

struct Arrived {
  std::string graces;
  std::map<std::string, Quotas> kinds;
};

// What a migration makes of the recorded text: the source's functions ask tools that
// print it, and the dump is read as on the node. `body` runs on the scratch host.
void withArrived(const std::function<void(Arrived&)>& body) {
  ScratchHost host;
  host.file("/etc/mtab", recorded("mounts"));
  for (const std::string tool : {"repquota", "edquota"}) {
    for (const std::string kind : {"u", "g"}) {
      host.file("/recorded/" + tool + "-" + kind, recorded(tool + "-" + kind));
    }
    host.tool("/usr/sbin/" + tool,
              {.script = "case $1 in -u*) kind=u ;; -g*) kind=g ;; esac; cat /recorded/" + tool +
                         "-$kind"});
  }
  host.run([&] {
    std::string limits, graces;
    ASSERT_EQ(quota_get_phys("/", limits, graces), 0);
    const std::string dump = quota_dump_write(limits, graces);
    Arrived arrived;
    ASSERT_EQ(quota_dump_read(dump, limits, arrived.graces), "");
    ASSERT_EQ(limits_parse_phys(limits, &arrived.kinds["user"], &arrived.kinds["group"]), 0);
    body(arrived);
  });
}

Quota withoutGraces(Quota quota) {
  quota.blockGrace = quota.inodeGrace = 0;
  return quota;
}

constexpr unsigned long long kMinute = 60;
constexpr unsigned long long kDay = 86400;

// A report rounds a period to minutes, and from two days on cuts it to days.
void expectAsPrecise(unsigned long long seconds, unsigned long long found) {
  if (seconds >= 2 * kDay) {
    EXPECT_EQ(found, seconds / kDay * kDay) << seconds;
  } else {
    EXPECT_EQ(found, (seconds + kMinute / 2) / kMinute * kMinute) << seconds;
  }
}

}  // namespace

TEST(RecordedQuota, LimitsArriveAsSetquotaWasToldThem) {
  withArrived([](Arrived& arrived) {
    Told wanted = told();
    for (const char* kind : {"user", "group"}) {
      const auto& limited = wanted.kinds[kind].entries;
      const auto& found = arrived.kinds[kind].entries;
      ASSERT_FALSE(limited.empty());
      for (const auto& [id, quota] : limited) {
        ASSERT_EQ(found.count(id), 1u) << kind << " " << id;
        EXPECT_EQ(withoutGraces(found.at(id)), quota) << kind << " " << id;
      }
      for (const auto& [id, quota] : found) {
        if (limited.count(id)) continue;
        EXPECT_EQ(quota, Quota()) << kind << " " << id;
      }
    }
  });
}

TEST(RecordedQuota, GracePeriodsOfBothKindsArrive) {
  withArrived([](Arrived& arrived) {
    Told wanted = told();
    for (const char* kind : {"user", "group"}) {
      ASSERT_NE(wanted.kinds[kind].blockGrace, 0u);
      EXPECT_EQ(arrived.kinds[kind].blockGrace, wanted.kinds[kind].blockGrace) << kind;
      EXPECT_EQ(arrived.kinds[kind].inodeGrace, wanted.kinds[kind].inodeGrace) << kind;
    }
  });
}

TEST(RecordedQuota, EditorsTableSaysTheSameGracePeriods) {
  withArrived([](Arrived& arrived) {
    Quotas users, groups;
    ASSERT_EQ(graces_parse_phys(arrived.graces, &users, &groups), 0);
    Told wanted = told();
    EXPECT_EQ(users.blockGrace, wanted.kinds["user"].blockGrace);
    EXPECT_EQ(users.inodeGrace, wanted.kinds["user"].inodeGrace);
    EXPECT_EQ(groups.blockGrace, wanted.kinds["group"].blockGrace);
    EXPECT_EQ(groups.inodeGrace, wanted.kinds["group"].inodeGrace);
  });
}

TEST(RecordedQuota, TimeLeftIsReadWhereALimitIsExceeded) {
  withArrived([](Arrived& arrived) {
    const auto expectLeft = [&](unsigned id, unsigned long long blocks, unsigned long long inodes) {
      const Quota found = arrived.kinds["user"].entries[id];
      EXPECT_EQ(found.blockGrace, blocks) << id;
      EXPECT_EQ(found.inodeGrace, inodes) << id;
    };
    expectLeft(2001, 0, 0);
    // Recorded some seconds after the periods began; the report rounds to minutes.
    expectLeft(2101, 5400, 0);
    expectLeft(2102, 0, 3 * kDay);
    expectLeft(2103, 5400, 3 * kDay);
    // No time is left to these.
    expectLeft(2104, 0, 0);
    expectLeft(2106, 0, 0);
    // 200000 seconds, cut to days, and 100, rounded to minutes.
    expectLeft(2105, 2 * kDay, 2 * kMinute);
  });
}

// repquota leaves them out, so no migration learns of them.
TEST(RecordedQuota, LimitsOfThoseWhoOwnNothingAreNotReported) {
  withArrived([](Arrived& arrived) {
    const Told wanted = told();
    ASSERT_FALSE(wanted.idle.empty());
    for (const auto& [kind, id] : wanted.idle) {
      EXPECT_EQ(arrived.kinds[kind].entries.count(id), 0u) << kind << " " << id;
    }
  });
}

TEST(RecordedQuota, GracePeriodsArriveAsPreciselyAsTheReportIs) {
  std::istringstream lines(recorded("graces"));
  unsigned count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    std::istringstream words(line);
    unsigned long long blocks = 0, inodes = 0;
    words >> blocks >> inodes;
    Quotas users, groups;
    const std::string heading = line.substr(line.find("Block"));
    limits_parse_phys("*** Report for user quotas on device /dev/vda\n" + heading, &users, &groups);
    expectAsPrecise(blocks, users.blockGrace);
    expectAsPrecise(inodes, users.inodeGrace);
  }
  EXPECT_EQ(count, 10u);
}
