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
  FakeChannel(Rehearsal& run, int number) : run_(run), number_(number) { ++run_.channelsAlive; }
  ~FakeChannel() override { --run_.channelsAlive; }
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> getDeserializerEnd() override {
    return boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new FakeChannelEnd(number_, 'd'));
  }
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> getSerializerEnd() override {
    return boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new FakeChannelEnd(number_, 's'));
  }

 private:
  Rehearsal& run_;
  int number_;
};

class FakeConnector : public QXL::QXLHaulConnector {
 public:
  FakeConnector(Rehearsal& run, const boost::shared_ptr<QXL::QXLChannelSettings>& expected)
      : run_(run), expected_(expected) {}
  boost::intrusive_ptr<QXL::QXLChannelPrototype> createChannel(
      const boost::shared_ptr<QXL::QXLChannelSettings>& settings) override {
    EXPECT_EQ(settings, expected_);
    ++made_;
    if (run_.call("channel " + std::to_string(made_)) != 0) return nullptr;
    return boost::intrusive_ptr<QXL::QXLChannelPrototype>(new FakeChannel(run_, made_));
  }

 private:
  Rehearsal& run_;
  boost::shared_ptr<QXL::QXLChannelSettings> expected_;
  int made_ = 0;
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
  explicit FakeSource(Rehearsal& run) : run_(run) {}
  int init(boost::shared_ptr<QXL::QXLConnectionInfo>,
           boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>) override {
    return run_.call("source init");
  }
  int finish() override { return run_.call("source finish"); }
  void sync(const HandlerPtr& handler, const std::string& session) override {
    run_.sync("source", handler, session);
  }
  int startRSyncServer(EndPtr end) override {
    expectEnd(end, 1, 's');
    return run_.call("startRSyncServer");
  }
  int waitRSyncServer() override { return run_.call("waitRSyncServer"); }
  int stopServices() override { return run_.call("stopServices"); }
  int startRSyncServer2(EndPtr end) override {
    expectEnd(end, 2, 's');
    return run_.call("startRSyncServer2");
  }
  int waitRSyncServer2() override { return run_.call("waitRSyncServer2"); }
  int dumpQuota(std::string* text) override {
    *text = "the quotas";
    return run_.call("dumpQuota");
  }
  int shutdownSrcSrv() override { return run_.call("shutdownSrcSrv"); }
  int destroySrcSrv() override { return run_.call("destroySrcSrv"); }
  int getUsageDiskSpace(long long* bytes) override {
    *bytes = run_.usage;
    return run_.call("getUsageDiskSpace");
  }

 private:
  Rehearsal& run_;
};

class FakeDestination : public QXLinMigrateP2VDeserializer {
 public:
  explicit FakeDestination(Rehearsal& run) : run_(run) {}
  int init(boost::shared_ptr<QXL::QXLConnectionInfo>,
           boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>) override {
    return run_.call("destination init");
  }
  int finish() override { return run_.call("destination finish"); }
  void sync(const HandlerPtr& handler, const std::string& session) override {
    run_.sync("destination", handler, session);
  }
  int lockVPS() override { return run_.call("lockVPS"); }
  int createDstSrv() override { return run_.call("createDstSrv"); }
  int rSync(EndPtr end) override {
    expectEnd(end, 1, 'd');
    return run_.call("rSync");
  }
  int rSync2(EndPtr end) override {
    expectEnd(end, 2, 'd');
    return run_.call("rSync2");
  }
  int restoreQuota(const std::string& text) override {
    run_.restored = text;
    return run_.call("restoreQuota");
  }
  int tuneDstSrv() override {
    run_.channelsAtTheEnd = run_.channelsAlive;
    return run_.call("tuneDstSrv");
  }
  int startDstSrv() override { return run_.call("startDstSrv"); }
  int getFreeDiskSpace(long long* bytes) override {
    *bytes = run_.free;
    return run_.call("getFreeDiskSpace");
  }

 private:
  Rehearsal& run_;
};

int process(Rehearsal& run, bool withConnector = true) {
  TestControl control(run.context);
  control.serializer_.reset(new FakeSource(run));
  control.deserializer_.reset(new FakeDestination(run));
  control.channelSettings_.reset(new QXL::QXLChannelSettings);
  if (withConnector) control.connector_.reset(new FakeConnector(run, control.channelSettings_));
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
