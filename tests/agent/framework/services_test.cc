// Starting services again, on a host of the test's own.

#include "agent/framework/services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "agent/wire/request_context.h"
#include "framework/migrate_params.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;
using namespace std::chrono_literals;

QXA::QXAMigrateP2VSerializerParams paramsWith(const std::vector<std::string>& services) {
  QXA::QXAMigrateP2VSerializerParams params;
  for (const std::string& name : services) {
    QXL::QXLService service;
    service.name = name;
    params.options.services.push_back(service);
  }
  return params;
}

// What people are told meanwhile.
std::vector<std::string> startServices(const std::vector<std::string>& services,
                                       const std::shared_ptr<agent::CancelToken>& cancel) {
  std::vector<std::string> lines;
  agent::CurrentRequest request;
  request.cancel = cancel;
  const agent::CurrentRequestScope scope(
      request, boost::intrusive_ptr<QXL::QXLRequestContextPrototype>(new agent::RequestContext(
                   [&](const QXL::QXLRequestProgressData& data) { lines.push_back(data.text); })));
  const auto params = paramsWith(services);
  agent::startServices(&params);
  return lines;
}

TEST(Services, AreStartedLastOneFirstAlsoWhenOneFails) {
  ScratchHost host;
  host.tool("/etc/init.d/one").tool("/etc/init.d/two", {.status = 1, .err = "no"});
  host.run([&] {
    EXPECT_THAT(startServices({"one", "two"}, nullptr),
                ElementsAre("Service two did not start again: no", "Service one started again."));
    EXPECT_THAT(host.calls(), ElementsAre("/etc/init.d/two\tstart", "/etc/init.d/one\tstart"));
  });
}

TEST(Services, AreStartedAlsoWhenTheRequestIsCancelled) {
  ScratchHost host;
  host.tool("/etc/init.d/one", {.script = "sleep 1; touch /run/one"});
  host.tool("/etc/init.d/two", {.script = "sleep 1; touch /run/two"});
  host.run([] {
    const auto cancel = std::make_shared<agent::CancelToken>();
    std::thread canceller([&] {
      std::this_thread::sleep_for(300ms);
      cancel->cancel();
    });
    startServices({"one", "two"}, cancel);
    canceller.join();
    EXPECT_TRUE(std::filesystem::exists("/run/one"));
    EXPECT_TRUE(std::filesystem::exists("/run/two"));
    // The session does not end them either.
    EXPECT_GT(cancel->grantedToPrograms(), 0s);
  });
}

// It had not stopped yet when it was started.
TEST(Services, AreStartedOnceMoreWhenTheyAreDownSomeSecondsLater) {
  ScratchHost host;
  host.tool("/etc/init.d/slow", {.script = "case $1 in\n"
                                           "start) [ -e /run/told ] && touch /run/up\n"
                                           "  touch /run/told ;;\n"
                                           "status) [ -e /run/up ] || exit 3 ;;\n"
                                           "esac; exit 0"});
  host.tool("/etc/init.d/mute", {.script = "[ $1 = start ] || exit 3"});
  host.run([&] {
    EXPECT_THAT(startServices({"mute", "slow"}, nullptr),
                ElementsAre("Service slow started again.", "Service mute started again.",
                            "Service slow was down again and started once more."));
    EXPECT_TRUE(std::filesystem::exists("/run/up"));
  });
}

}  // namespace
