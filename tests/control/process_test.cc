#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/stages.h"
#include "support/child_test.h"
#include "test_control.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

const char kNoSpace[] = "There is not enough free disk space for p2v.";

// The whole of a migration: what each stage is preceded by, and the stages.
const std::vector<std::string> kSequence = {"destination sync", "lockVPS",
                                            "destination sync", "createDstSrv",
                                            "source sync",      "getUsageDiskSpace",
                                            "destination sync", "getFreeDiskSpace",
                                            "source sync",      "dumpQuota",
                                            "source sync",      "channel 1",
                                            "source sync",      "startRSyncServer",
                                            "destination sync", "rSync",
                                            "source sync",      "waitRSyncServer",
                                            "source sync",      "stopServices",
                                            "source sync",      "channel 2",
                                            "source sync",      "startRSyncServer2",
                                            "destination sync", "rSync2",
                                            "source sync",      "waitRSyncServer2",
                                            "destination sync", "restoreQuota",
                                            "destination sync", "tuneDstSrv"};

// What happens in a run, and what is to happen.
struct Rehearsal {
  boost::intrusive_ptr<ControlContext> context{new ControlContext};
  std::vector<std::string> calls;
  std::string failing;  // this call fails
  long long usage = 5 * 1048576;
  long long free = 7 * 1048576;
  std::string restored;
  int channelsAlive = 0;
  int channelsAtTheEnd = -1;

  int call(const std::string& name) {
    calls.push_back(name);
    return failing == name ? 5 : 0;
  }
  void sync(const char* end, const boost::intrusive_ptr<QXL::QXLProgressHandlerPrototype>& handler,
            const std::string& session) {
    EXPECT_EQ(handler.get(), context.get());
    EXPECT_EQ(session, "");
    calls.push_back(std::string(end) + " sync");
  }
};

// A channel end that knows its channel and its side.
class FakeChannelEnd : public QXL::QXLChannelEndPrototype {
 public:
  FakeChannelEnd(int ofChannel, char onSide) : channel(ofChannel), side(onSide) {}
  int getInputFd() override { return -1; }
  int getOutputFd() override { return -1; }
  const int channel;
  const char side;
};

class FakeChannel : public QXL::QXLChannelPrototype {
 public:
  FakeChannel(Rehearsal& run, int number) : m_run(run), m_number(number) { ++m_run.channelsAlive; }
  ~FakeChannel() override { --m_run.channelsAlive; }
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> getDeserializerEnd() override {
    return boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new FakeChannelEnd(m_number, 'd'));
  }
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> getSerializerEnd() override {
    return boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new FakeChannelEnd(m_number, 's'));
  }

 private:
  Rehearsal& m_run;
  int m_number;
};

class FakeConnector : public QXL::QXLHaulConnector {
 public:
  FakeConnector(Rehearsal& run, const boost::shared_ptr<QXL::QXLChannelSettings>& expected)
      : m_run(run), m_expected(expected) {}
  boost::intrusive_ptr<QXL::QXLChannelPrototype> createChannel(
      const boost::shared_ptr<QXL::QXLChannelSettings>& settings) override {
    EXPECT_EQ(settings, m_expected);
    ++m_made;
    if (m_run.call("channel " + std::to_string(m_made)) != 0) return nullptr;
    return boost::intrusive_ptr<QXL::QXLChannelPrototype>(new FakeChannel(m_run, m_made));
  }

 private:
  Rehearsal& m_run;
  boost::shared_ptr<QXL::QXLChannelSettings> m_expected;
  int m_made = 0;
};

void expectEnd(const boost::intrusive_ptr<QXL::QXLChannelEndPrototype>& end, int channel,
               char side) {
  const auto& fake = dynamic_cast<const FakeChannelEnd&>(*end);
  EXPECT_EQ(fake.channel, channel);
  EXPECT_EQ(fake.side, side);
}

typedef boost::intrusive_ptr<QXL::QXLChannelEndPrototype> EndPtr;
typedef boost::intrusive_ptr<QXL::QXLProgressHandlerPrototype> HandlerPtr;

class FakeSource : public QXLinMigrateP2VSerializer {
 public:
  explicit FakeSource(Rehearsal& run) : m_run(run) {}
  int init(boost::shared_ptr<QXL::QXLConnectionInfo>,
           boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>) override {
    return m_run.call("source init");
  }
  int finish() override { return m_run.call("source finish"); }
  void sync(const HandlerPtr& handler, const std::string& session) override {
    m_run.sync("source", handler, session);
  }
  int startRSyncServer(EndPtr end) override {
    expectEnd(end, 1, 's');
    return m_run.call("startRSyncServer");
  }
  int waitRSyncServer() override { return m_run.call("waitRSyncServer"); }
  int stopServices() override { return m_run.call("stopServices"); }
  int startRSyncServer2(EndPtr end) override {
    expectEnd(end, 2, 's');
    return m_run.call("startRSyncServer2");
  }
  int waitRSyncServer2() override { return m_run.call("waitRSyncServer2"); }
  int dumpQuota(std::string* text) override {
    *text = "the quotas";
    return m_run.call("dumpQuota");
  }
  int shutdownSrcSrv() override { return m_run.call("shutdownSrcSrv"); }
  int destroySrcSrv() override { return m_run.call("destroySrcSrv"); }
  int getUsageDiskSpace(long long* bytes) override {
    *bytes = m_run.usage;
    return m_run.call("getUsageDiskSpace");
  }

 private:
  Rehearsal& m_run;
};

class FakeDestination : public QXLinMigrateP2VDeserializer {
 public:
  explicit FakeDestination(Rehearsal& run) : m_run(run) {}
  int init(boost::shared_ptr<QXL::QXLConnectionInfo>,
           boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>) override {
    return m_run.call("destination init");
  }
  int finish() override { return m_run.call("destination finish"); }
  void sync(const HandlerPtr& handler, const std::string& session) override {
    m_run.sync("destination", handler, session);
  }
  int lockVPS() override { return m_run.call("lockVPS"); }
  int createDstSrv() override { return m_run.call("createDstSrv"); }
  int rSync(EndPtr end) override {
    expectEnd(end, 1, 'd');
    return m_run.call("rSync");
  }
  int rSync2(EndPtr end) override {
    expectEnd(end, 2, 'd');
    return m_run.call("rSync2");
  }
  int restoreQuota(const std::string& text) override {
    m_run.restored = text;
    return m_run.call("restoreQuota");
  }
  int tuneDstSrv() override {
    m_run.channelsAtTheEnd = m_run.channelsAlive;
    return m_run.call("tuneDstSrv");
  }
  int startDstSrv() override { return m_run.call("startDstSrv"); }
  int getFreeDiskSpace(long long* bytes) override {
    *bytes = m_run.free;
    return m_run.call("getFreeDiskSpace");
  }

 private:
  Rehearsal& m_run;
};

int process(Rehearsal& run, bool withConnector = true) {
  TestControl control(run.context);
  control.m_serializer.reset(new FakeSource(run));
  control.m_deserializer.reset(new FakeDestination(run));
  control.m_channelSettings.reset(new QXL::QXLChannelSettings);
  if (withConnector) control.m_connector.reset(new FakeConnector(run, control.m_channelSettings));
  return control.process();
}

}  // namespace

TEST(ControlProcess, RunsTheStagesInOrderEachAfterASync) {
  Rehearsal run;
  EXPECT_EQ(process(run), 0);
  EXPECT_THAT(run.calls, ElementsAreArray(kSequence));
  EXPECT_EQ(run.context->getLastErrorCode(), 0);
}

TEST(ControlProcess, QuotasOfTheSourceAreRestored) {
  Rehearsal run;
  EXPECT_EQ(process(run), 0);
  EXPECT_EQ(run.restored, "the quotas");
}

TEST(ControlProcess, ChannelsAreReleasedWhenItReturns) {
  Rehearsal run;
  EXPECT_EQ(process(run), 0);
  EXPECT_EQ(run.channelsAtTheEnd, 2);
  EXPECT_EQ(run.channelsAlive, 0);
}

TEST(ControlProcess, FirstFailureEndsItAndAddsNoError) {
  // Stages and channels alike; nothing follows the one that fails.
  for (std::size_t i = 1; i < kSequence.size(); i += 2) {
    Rehearsal run;
    run.failing = kSequence[i];
    run.context->setLastError(-3, "the stage's own");
    EXPECT_EQ(process(run), -1) << run.failing;
    EXPECT_THAT(run.calls,
                ElementsAreArray(kSequence.begin(), kSequence.begin() + static_cast<long>(i) + 1));
    EXPECT_EQ(run.context->getLastErrorCode(), -3);
    EXPECT_EQ(run.context->getLastErrorText(), "the stage's own");
    EXPECT_EQ(run.channelsAlive, 0);
  }
}

TEST(ControlProcess, TooLittleSpaceEndsItAfterTheProgressLine) {
  Rehearsal run;
  run.usage = 3 * 1048576;
  run.free = 3 * 1048576 - 1;
  EXPECT_EQ(process(run), -1);
  EXPECT_EQ(run.context->getLastErrorCode(), -1);
  EXPECT_EQ(run.context->getLastErrorText(), kNoSpace);
  EXPECT_EQ(run.calls.back(), "getFreeDiskSpace");
  EXPECT_THAT(run.context->lines, ElementsAre("Disk usage: required 3M, available 2M"));
}

TEST(ControlProcess, JustEnoughSpaceIsEnough) {
  Rehearsal run;
  run.usage = run.free = 1048575;
  EXPECT_EQ(process(run), 0);
  EXPECT_THAT(run.context->lines, ElementsAre("Disk usage: required 0M, available 0M"));
}

TEST(ControlProcess, SpaceIsShownInWholeMebibytesTowardZero) {
  Rehearsal run;
  run.usage = -1048577;
  run.free = 5000000000000;
  EXPECT_EQ(process(run), 0);
  EXPECT_THAT(run.context->lines, ElementsAre("Disk usage: required -1M, available 4768371M"));
}

TEST(ControlProcess, WithoutAConnectorItStopsOnTheAssertion) {
  test_support::runInChildExpectingAbort(
      [] {
        Rehearsal run;
        process(run, false);
      },
      "px != 0");
}
