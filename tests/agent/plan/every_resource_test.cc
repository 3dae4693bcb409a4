// A resource of the table shows wherever limits do.

#include <gtest/gtest.h>

#include <algorithm>

#include "agent/plan/make_plan.h"
#include "agent/plan/plan_json.h"
#include "agent/plan/plan_text.h"
#include "framework/env_manager.h"
#include "host/resources.h"
#include "node/report.h"
#include "node/resources.h"

namespace {

class EveryResource : public testing::TestWithParam<host::Resource> {
 protected:
  const std::string record_ = host::recordName(GetParam());
  const host::ShellVars config_{{record_, "1000:2000"}};
};

TEST_P(EveryResource, IsReadFromAConfigurationFileAndWrittenBack) {
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  const std::string text = record_ + "=\"1000:2000\"\n";
  QXA::QXAEnvConfig config;
  ASSERT_EQ(parser.parse(text, config), 0);
  std::optional<std::set<QXL::QXLQoS>> records;
  config.getQoSes(records);
  ASSERT_TRUE(records);
  EXPECT_EQ(records->begin()->name, GetParam().name);
  EXPECT_EQ(parser.format(config), text);
}

TEST_P(EveryResource, HasARowInThePlanAndInTheMeasurement) {
  const std::vector<agent::PlannedLimit> limits = agent::plannedLimits({}, config_);
  ASSERT_EQ(limits.size(), 1u);
  EXPECT_EQ(limits[0].name, GetParam().name);
  EXPECT_EQ(limits[0].soft, "1000");
  EXPECT_EQ(limits[0].hard, "2000");
  agent::PlanFacts facts;
  facts.config = config_;
  const std::string name = "\"" + std::string(GetParam().name) + "\"";
  EXPECT_NE(agent::planJson(facts, agent::makePlan(facts)).find(name), std::string::npos);
  EXPECT_NE(agent::measurementText("server", {}, config_).find(GetParam().name), std::string::npos);
}

TEST_P(EveryResource, IsInTheJournalUnlessItIsFixed) {
  agent::Measurement measurement;
  measurement.numproc = 143;
  const auto figures = agent::figuresOf(agent::plannedLimits(measurement, config_));
  const auto limits = agent::plannedLimits(measurement, config_);
  ASSERT_EQ(figures.size(), limits[0].measured.empty() ? 0u : 1u);
  if (figures.empty()) return;
  EXPECT_EQ(figures[0].name, GetParam().name);
  EXPECT_EQ(figures[0].assigned.barrier, 1000u);
  EXPECT_EQ(figures[0].assigned.limit, 2000u);
  // What is computed from others was not measured.
  EXPECT_EQ(figures[0].measured.has_value(), GetParam().computed == std::string());
  if (record_ == "NUMPROC") {
    EXPECT_EQ(figures[0].measured, 143u);
  }
}

TEST_P(EveryResource, IsALimitOrNotEnforcedInTheStatus) {
  node::StatusReport report;
  report.container.id = 101;
  report.container.vars = config_;
  node::CgroupLayout layout;
  layout.v2 = {"pids", "memory", "cpu"};
  report.resources = node::planResources(report.container, layout);
  const std::string text = node::statusText(report);
  // The quota tools show theirs themselves.
  EXPECT_EQ(text.find(record_) != std::string::npos, GetParam().holder != host::Holder::kQuota)
      << text;
}

INSTANTIATE_TEST_SUITE_P(OfTheTable, EveryResource,
                         testing::ValuesIn(host::resources().begin(), host::resources().end()),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
