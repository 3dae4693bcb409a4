// Whole migrations: the framework drives a controller that the kit made, its ends
// are proxies, and behind them operators call workers.
#include "agent/programs/migration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixtures/fake_workers.h"
#include "fixtures/local_ends.h"
#include "fixtures/served.h"

using namespace fixtures;
using testing::Contains;
using testing::ElementsAre;

namespace {

class View : public agent::MigrationView {
 public:
  void stageBegins(const std::string&) override {}
  void stageEnds(const std::string&, int, double) override {}
  void expect(const agent::Outlook&) override {}
  void line(const std::string& text) override { lines.push_back(text); }
  void percent(const std::string&, int) override {}
  void leftOut(const host::CopyReport&) override {}
  std::vector<std::string> lines;
};

class Migration : public testing::Test {
 protected:
  agent::MigrationResult run() {
    QXL::QXLConnectionInfo here;
    here.address = "local";
    return agent::migrate(here, newParams(), {}, view, std::make_shared<agent::CancelToken>());
  }
  LoadedPlugin plugin;
  FakeWorkers fakes;
  View view;
};

}  // namespace

TEST_F(Migration, RunsEveryStageOnItsEnd) {
  const agent::MigrationResult result = run();
  EXPECT_TRUE(result.succeeded) << result.stage << ": " << result.text;
  EXPECT_THAT(Journal::instance().calls,
              ElementsAre("lockVPS", "createDstSrv", "getUsageDiskSpace", "getFreeDiskSpace",
                          "dumpQuota", "startRSyncServer(channel)", "rSync(channel)",
                          "waitRSyncServer", "stopServices", "startRSyncServer2(channel)",
                          "rSync2(channel)", "waitRSyncServer2", "restoreQuota('the quotas')",
                          "tuneDstSrv", "destination finish", "source finish"));
  EXPECT_THAT(view.lines, Contains("Disk usage: required 0M, available 0M"));
}

TEST_F(Migration, FailedStageEndsItWithItsError) {
  Journal::instance().failing = "stopServices";
  const agent::MigrationResult result = run();
  EXPECT_FALSE(result.succeeded);
  EXPECT_EQ(result.stage, "stopServices");
  EXPECT_EQ(result.text, "stopServices failed");
  EXPECT_THAT(
      Journal::instance().calls,
      ElementsAre("lockVPS", "createDstSrv", "getUsageDiskSpace", "getFreeDiskSpace", "dumpQuota",
                  "startRSyncServer(channel)", "rSync(channel)", "waitRSyncServer", "stopServices",
                  "destination finish", "source finish"));
}

TEST_F(Migration, TooLittleSpaceIsTheControllersOwnError) {
  Journal::instance().free = 999;
  const agent::MigrationResult result = run();
  EXPECT_FALSE(result.succeeded);
  EXPECT_EQ(result.text, "There is not enough free disk space for p2v.");
}
