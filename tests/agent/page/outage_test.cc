#include "agent/page/outage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using agent::outageSeconds;
using testing::DoubleEq;
using testing::Optional;

namespace {

host::MigrationRecord stopped() {
  host::MigrationRecord record;
  record.services = {"nginx"};
  record.stages = {{"rSync", "2026-11-21T22:21:26Z", 63, 0},
                   {"stopServices", "2026-11-21T22:22:29Z", 2, 0},
                   {"rSync2", "2026-11-21T22:22:31Z", 9.5, 0},
                   {"finish", "2026-11-21T22:22:40Z", 0.5, 0}};
  return record;
}

TEST(Outage, BeginsWithTheStageThatStopsServices) {
  EXPECT_THAT(agent::outageBegin(stopped()), Optional(1u));
  EXPECT_THAT(outageSeconds(stopped()), Optional(DoubleEq(12)));
  EXPECT_DOUBLE_EQ(agent::tookSeconds(stopped()), 75);
}

TEST(Outage, ThereIsNoneWhenNothingWasStopped) {
  host::MigrationRecord record = stopped();
  record.services.clear();
  EXPECT_EQ(outageSeconds(record), std::nullopt);
}

TEST(Outage, ServicesThatCouldNotBeStoppedRunOn) {
  host::MigrationRecord record = stopped();
  record.stages[1].result = 1;
  EXPECT_EQ(outageSeconds(record), std::nullopt);
}

}  // namespace
