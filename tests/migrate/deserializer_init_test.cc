#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string noScript(const std::string& distribution) {
  return "Couldn't find a proper post migration script for the given distribution '" +
         distribution +
         "'. For the list of supported distributions look for *.conf files in the "
         "/etc/sysconfig/qx-scripts/dists directory on the destination Hardware Node.";
}

ParamsPtr withDistribution(const std::optional<QXA::QXADistribution>& distribution) {
  const ParamsPtr params = containerParams();
  params->options.config->setDistribution(distribution);
  return params;
}

}  // namespace

TEST(DestinationInit, KnownDistributionIsAccepted) {
  ScratchHost host = nodeHost();
  host.run([&] {
    const Served served = Destination().start(containerParams());
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(DestinationInit, UnknownDistributionIsRefused) {
  nodeHost().run([] {
    const Served served =
        Destination().start(withDistribution(QXA::QXADistribution{"redhat", "9"}));
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, noScript("redhat-9"));
    EXPECT_EQ(Destination().start(withDistribution(QXA::QXADistribution{"redhat", ""})).text,
              noScript("redhat"));
    EXPECT_EQ(Destination().start(withDistribution(std::nullopt)).text, noScript(""));
  });
}

TEST(DestinationInit, DistributionWithoutItsScriptIsRefused) {
  ScratchHost host = nodeHost();
  host.file(kDist, "[GLOBAL]\nPRE_MIGRATE=x.sh\n");
  host.run([] { EXPECT_EQ(Destination().start(containerParams()).text, noScript("debian-12")); });
}

TEST(DestinationInit, WithoutAConfigurationNoScriptIsAskedFor) {
  ScratchHost().run([] { EXPECT_EQ(Destination().start(newParams()).code, 0); });
}

TEST(DestinationInit, ExclusionListIsCompletedInPlaceAlsoOnFailure) {
  ScratchHost().run([] {
    const ParamsPtr params = containerParams();
    params->options.excludes = {"/z"};
    EXPECT_EQ(DirectDestination().init(params).code, -1);
    EXPECT_THAT(params->options.excludes,
                ElementsAre("/proc/*", "/sys/*", "/var/log/lastlog", "/var/qxagent.tmp", "/z"));
  });
}
