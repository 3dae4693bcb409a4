#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "agent/wire/channels.h"
#include "agent/wire/message.h"
#include "fixtures/fake_workers.h"
#include "fixtures/local_ends.h"
#include "fixtures/served.h"
#include "frame/answer_fields.h"

using namespace fixtures;
using testing::ElementsAre;

namespace {

// Both ends with fake workers behind them, created and initialised.
class Proxies : public testing::Test {
 protected:
  Proxies() {
    const auto init = [](auto& end) { return end.init(nullptr, newParams()); };
    EXPECT_EQ(ends.call(ends.source, init), 0) << ends.error();
    EXPECT_EQ(ends.call(ends.destination, init), 0) << ends.error();
  }

  static boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel() {
    return agent::makeChannelPair(0).first;
  }

  const std::vector<std::string>& calls() { return Journal::instance().calls; }

  LoadedPlugin plugin;
  FakeWorkers fakes;
  LocalEnds ends;
};

}  // namespace

TEST_F(Proxies, SourceStagesAreCalledByTheirNames) {
  typedef QXLinMigrateP2VSerializer End;
  const auto call = [&](auto stage) { return ends.call(ends.source, stage); };
  EXPECT_EQ(call([](End& end) { return end.startRSyncServer(channel()); }), 0) << ends.error();
  EXPECT_EQ(call([](End& end) { return end.waitRSyncServer(); }), 0);
  EXPECT_EQ(call([](End& end) { return end.stopServices(); }), 0);
  EXPECT_EQ(call([](End& end) { return end.startRSyncServer2(channel()); }), 0);
  EXPECT_EQ(call([](End& end) { return end.waitRSyncServer2(); }), 0);
  EXPECT_EQ(call([](End& end) { return end.shutdownSrcSrv(); }), 0);
  EXPECT_EQ(call([](End& end) { return end.destroySrcSrv(); }), 0);
  EXPECT_THAT(calls(), ElementsAre("startRSyncServer(channel)", "waitRSyncServer", "stopServices",
                                   "startRSyncServer2(channel)", "waitRSyncServer2",
                                   "shutdownSrcSrv", "destroySrcSrv"));
}

TEST_F(Proxies, DestinationStagesAreCalledByTheirNames) {
  typedef QXLinMigrateP2VDeserializer End;
  const auto call = [&](auto stage) { return ends.call(ends.destination, stage); };
  EXPECT_EQ(call([](End& end) { return end.lockVPS(); }), 0) << ends.error();
  EXPECT_EQ(call([](End& end) { return end.createDstSrv(); }), 0);
  EXPECT_EQ(call([](End& end) { return end.rSync(channel()); }), 0);
  EXPECT_EQ(call([](End& end) { return end.rSync2(channel()); }), 0);
  EXPECT_EQ(call([](End& end) { return end.tuneDstSrv(); }), 0);
  EXPECT_EQ(call([](End& end) { return end.startDstSrv(); }), 0);
  EXPECT_THAT(calls(), ElementsAre("lockVPS", "createDstSrv", "rSync(channel)", "rSync2(channel)",
                                   "tuneDstSrv", "startDstSrv"));
}

TEST_F(Proxies, AnswersReachTheCallersVariables) {
  Journal::instance().quota = std::string("bytes \0\xff\n", 9);
  Journal::instance().usage = 5000000000;
  Journal::instance().free = -1;
  std::string quota = "old";
  long long usage = 0;
  long long free = 0;
  EXPECT_EQ(ends.call(ends.source, [&](auto& end) { return end.dumpQuota(&quota); }), 0);
  EXPECT_EQ(ends.call(ends.source, [&](auto& end) { return end.getUsageDiskSpace(&usage); }), 0);
  EXPECT_EQ(ends.call(ends.destination, [&](auto& end) { return end.getFreeDiskSpace(&free); }), 0);
  EXPECT_EQ(quota, Journal::instance().quota);
  EXPECT_EQ(usage, 5000000000);
  EXPECT_EQ(free, -1);
}

TEST_F(Proxies, QuotaTextIsSentAlsoWhenEmpty) {
  EXPECT_EQ(ends.call(ends.destination, [](auto& end) { return end.restoreQuota(""); }), 0)
      << ends.error();
  EXPECT_EQ(ends.call(ends.destination, [](auto& end) { return end.restoreQuota("limits"); }), 0);
  EXPECT_THAT(calls(), ElementsAre("restoreQuota('')", "restoreQuota('limits')"));
}

TEST_F(Proxies, FailureComesBackUnchangedAndLeavesTheVariableAlone) {
  Journal::instance().failing = "getUsageDiskSpace";
  long long usage = 42;
  EXPECT_EQ(ends.call(ends.source, [&](auto& end) { return end.getUsageDiskSpace(&usage); }), -7);
  EXPECT_EQ(ends.error(), "getUsageDiskSpace failed");
  EXPECT_EQ(usage, 42);

  Journal::instance().failing = "rSync";
  EXPECT_EQ(ends.call(ends.destination, [](auto& end) { return end.rSync(channel()); }), -7);
  Journal::instance().failing = "restoreQuota";
  EXPECT_EQ(ends.call(ends.destination, [](auto& end) { return end.restoreQuota(""); }), -7);
  Journal::instance().failing = "lockVPS";
  EXPECT_EQ(ends.call(ends.destination, [](auto& end) { return end.lockVPS(); }), -7);
  EXPECT_EQ(ends.error(), "lockVPS failed");
}

TEST_F(Proxies, AnswerWithoutItsFieldIsAnError) {
  long long bytes = 42;
  std::string text = "old";
  Journal::instance().silent = "getUsageDiskSpace";
  EXPECT_NE(ends.call(ends.source, [&](auto& end) { return end.getUsageDiskSpace(&bytes); }), 0);
  Journal::instance().silent = "dumpQuota";
  EXPECT_NE(ends.call(ends.source, [&](auto& end) { return end.dumpQuota(&text); }), 0);
  Journal::instance().silent = "getFreeDiskSpace";
  EXPECT_NE(ends.call(ends.destination, [&](auto& end) { return end.getFreeDiskSpace(&bytes); }),
            0);
  EXPECT_EQ(bytes, 42);
  EXPECT_EQ(text, "old");
}

TEST_F(Proxies, FinishEndsTheWorkers) {
  EXPECT_EQ(ends.call(ends.source, [](auto& end) { return end.finish(); }), 0);
  EXPECT_EQ(ends.call(ends.destination, [](auto& end) { return end.finish(); }), 0);
  EXPECT_THAT(calls(), ElementsAre("source finish", "destination finish"));
}

TEST(Readers, HaveTheFlagsThatEveryAgentKnows) {
  long long bytes = 0;
  std::string text;
  EXPECT_EQ(P2V::BytesReader(&bytes).flags(), 1);
  EXPECT_EQ(P2V::QuotaReader(&text).flags(), 1);
}

TEST(Fields, HaveTheNumbersThatEveryAgentKnows) {
  agent::Message bytes, quota;
  EXPECT_EQ(P2V::BytesWriter(5000000000).write(bytes), 0);
  long long value = 0;
  EXPECT_EQ(bytes.getValueLongLong(value, 1017), 0);
  EXPECT_EQ(value, 5000000000);
  EXPECT_EQ(P2V::QuotaWriter("limits").write(quota), 0);
  std::string text;
  EXPECT_EQ(quota.getValueBase64(text, 1811), 0);
  EXPECT_EQ(text, "limits");
  // Readers of the same.
  EXPECT_EQ(P2V::BytesReader(&value).read(bytes), 0);
  EXPECT_EQ(P2V::QuotaReader(&text).read(quota), 0);
  EXPECT_NE(P2V::BytesReader(&value).read(quota), 0);
  EXPECT_NE(P2V::QuotaReader(&text).read(bytes), 0);
}
