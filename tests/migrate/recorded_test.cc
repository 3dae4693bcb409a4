// The numbers and the order in which the workers use the framework.
#include <fcntl.h>
#include <unistd.h>

#include "recorded_framework.h"
#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const char kServerWords[] =
    ": /usr/local/share/qxlinmigrate/rsync --server --sender -ESHa --numeric-ids --delete . /";

// An end whose descriptors the test keeps.
class TestEnd : public QXL::QXLChannelEndPrototype {
 public:
  TestEnd(int input, int output) : input_(input), output_(output) {}
  int getInputFd() override { return input_; }
  int getOutputFd() override { return output_; }

 private:
  int input_;
  int output_;
};

typedef boost::intrusive_ptr<QXL::QXLChannelEndPrototype> EndPtr;

struct Channel {
  Channel() : end(new TestEnd(pipe.end[0], pipe.end[1])) {}
  ~Channel() {
    close(pipe.end[0]);
    close(pipe.end[1]);
  }
  std::string in() const { return std::to_string(pipe.end[0]); }
  std::string out() const { return std::to_string(pipe.end[1]); }
  Pipe pipe;
  EndPtr end;
};

// A new record for each test, and the calls of the part that is looked at.
RecordedFramework& framework() { return RecordedFramework::instance(); }
std::vector<std::string>& calls() { return framework().calls; }

class Recorded : public testing::Test {
 protected:
  Recorded() { framework() = RecordedFramework(); }
};

template <class Worker>
void begin(Direct<Worker>& worker, const ParamsPtr& params) {
  const Served served = worker.init(params);
  ASSERT_EQ(served.code, 0) << served.text;
  framework() = RecordedFramework();
}

ParamsPtr rootedParams() {
  const ParamsPtr params = containerParams();
  params->options.config->setVERootVar(kVeRoot);
  return params;
}

std::string run(const std::string& words) { return "execWithOnlyError 0 80000: " + words; }

}  // namespace

typedef Recorded SourceRecord;
typedef Recorded DestinationRecord;
typedef Recorded FinishRecord;
typedef Recorded CreateRecord;

TEST_F(SourceRecord, InitAsksRsyncWithTheRunnersLimits) {
  ScratchHost().run([] {
    DirectSource source;
    EXPECT_EQ(source.init(newParams()).code, 0);
    EXPECT_THAT(calls(),
                ElementsAre("runner 16384", run("/usr/local/share/qxlinmigrate/rsync --version"),
                            "endCommand 0"));
  });
}

TEST_F(SourceRecord, EachServiceHasARunnerOfItsOwn) {
  ScratchHost host;
  host.file("/etc/init.d/a", "").file("/etc/init.d/b", "");
  host.run([] {
    const ParamsPtr params = newParams();
    params->options.services = {{"b"}, {"a"}};
    DirectSource source;
    begin(source, params);
    framework().statuses = {256, 9};
    EXPECT_EQ(source.call([](auto& w) { return w.stopServices(); }).code, 0);
    EXPECT_THAT(calls(), ElementsAre("runner 16384", run("/etc/init.d/b stop"), "runner 16384",
                                     run("/etc/init.d/a stop"), "endCommand 0"));
  });
}

TEST_F(SourceRecord, ServerIsWiredAndStartedWithItsFlags) {
  ScratchHost().run([] {
    DirectSource source;
    begin(source, newParams());
    const Channel channel;
    EXPECT_EQ(source.call([&](auto& w) { return w.startRSyncServer(channel.end); }).code, 0);
    EXPECT_THAT(calls(),
                ElementsAre("runner 16384", "lasting", "setfd 1 " + channel.in(),
                            "setfd 2 " + channel.out(),
                            "execAsync 515 0" + std::string(kServerWords), "endCommand 0"));
    calls().clear();
    EXPECT_EQ(source.call([](auto& w) { return w.waitRSyncServer(); }).code, 0);
    EXPECT_THAT(calls(), ElementsAre("wait", "lasting gone", "endCommand 0"));
  });
}

TEST_F(SourceRecord, DescriptorsOfTheChannelAreInheritable) {
  ScratchHost().run([] {
    DirectSource source;
    begin(source, newParams());
    const Channel channel;
    ASSERT_EQ(fcntl(channel.pipe.end[0], F_GETFD), FD_CLOEXEC);
    ASSERT_EQ(fcntl(channel.pipe.end[1], F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(source.call([&](auto& w) { return w.startRSyncServer(channel.end); }).code, 0);
    EXPECT_EQ(fcntl(channel.pipe.end[0], F_GETFD), 0);
    EXPECT_EQ(fcntl(channel.pipe.end[1], F_GETFD), 0);
  });
}

TEST_F(SourceRecord, EarlierServerGoesBeforeTheNextIsMade) {
  ScratchHost().run([] {
    DirectSource source;
    begin(source, newParams());
    const Channel channel;
    const auto start = [&] {
      return source.call([&](auto& w) { return w.startRSyncServer(channel.end); });
    };
    framework().startResult = -1;
    EXPECT_EQ(start().code, -1);
    calls().clear();
    framework().startResult = 0;
    EXPECT_EQ(start().code, 0);
    calls().resize(3);
    EXPECT_THAT(calls(), ElementsAre("lasting gone", "runner 16384", "lasting"));
    calls().clear();
    // One that ended badly is kept until finish.
    framework().statuses = {3072};
    EXPECT_EQ(source.call([](auto& w) { return w.waitRSyncServer(); }).code, -1);
    EXPECT_THAT(calls(), ElementsAre("wait", "endCommand 0"));
    calls().clear();
    EXPECT_EQ(source.call([](auto& w) { return w.finish(); }).code, 0);
    EXPECT_THAT(calls(), ElementsAre("lasting gone", "endCommand 0"));
  });
}

TEST_F(SourceRecord, RefusedStageEndsWithItsCodeAndNoText) {
  DirectSource source;
  source.call([](auto& w) { return w.destroySrcSrv(); }, kStranger);
  EXPECT_THAT(calls(), ElementsAre("endCommand 414"));
}

namespace {

// Counts what reaches the first pass's stages.
struct OverriddenSource : DRAHN2VPSMigrateSerializerSys {
  using DRAHN2VPSMigrateSerializerSys::DRAHN2VPSMigrateSerializerSys;
  int startRSyncServer(EndPtr channel) override {
    given = channel;
    return 5;
  }
  int waitRSyncServer() override { return 6; }
  EndPtr given;
};

struct OverriddenDestination : DRAHN2VPSMigrateDeserializerSys {
  using DRAHN2VPSMigrateDeserializerSys::DRAHN2VPSMigrateDeserializerSys;
  int rSync(EndPtr channel) override {
    given = channel;
    return 7;
  }
  EndPtr given;
};

}  // namespace

TEST_F(SourceRecord, SecondPassIsTheFirstThroughItsVirtualSlots) {
  Direct<OverriddenSource> source;
  const Channel channel;
  source.call([&](auto& w) { return w.startRSyncServer2(channel.end); });
  EXPECT_EQ(source.result, 5);
  EXPECT_EQ(source.worker->given, channel.end);
  source.call([](auto& w) { return w.waitRSyncServer2(); });
  EXPECT_EQ(source.result, 6);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(DestinationRecord, SecondPassIsTheFirstThroughItsVirtualSlot) {
  Direct<OverriddenDestination> destination;
  const Channel channel;
  destination.call([&](auto& w) { return w.rSync2(channel.end); });
  EXPECT_EQ(destination.result, 7);
  EXPECT_EQ(destination.worker->given, channel.end);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(DestinationRecord, ClientIsRunWithItsFlagsAndReadChunkByChunk) {
  nodeHost().run([] {
    DirectDestination destination;
    begin(destination, rootedParams());
    const Channel channel;
    framework().more = {1, 1};
    framework().chunks = {"17 45% |", "no progress"};
    const Served served = destination.call([&](auto& w) { return w.rSync(channel.end); });
    EXPECT_EQ(served.code, 0) << served.text;
    ASSERT_GE(calls().size(), 3u);
    EXPECT_THAT(calls()[2], StartsWith("execComplexBegin 2 80000 null: " + std::string(kRsync)));
    calls()[2] = "begin";
    EXPECT_THAT(calls(), ElementsAre("runner 16384", "setChunkDivider \n\r", "begin",
                                     "execComplexGet", "gets 2", "execComplexGet", "gets 2",
                                     "execComplexGet", "execComplexEnd", "endCommand 0"));
    EXPECT_EQ(fcntl(channel.pipe.end[0], F_GETFD), 0);
    EXPECT_EQ(fcntl(channel.pipe.end[1], F_GETFD), 0);
  });
}

TEST_F(DestinationRecord, MissingChunkEndsTheReading) {
  nodeHost().run([] {
    DirectDestination destination;
    begin(destination, rootedParams());
    const Channel channel;
    framework().more = {1, 1, 1};
    framework().statuses = {3072};
    const Served served = destination.call([&](auto& w) { return w.rSync(channel.end); });
    EXPECT_EQ(served.text, "rsync failed (code 3072) : output of 4");
    calls().erase(calls().begin(), calls().begin() + 3);
    EXPECT_THAT(calls(), ElementsAre("execComplexGet", "gets 2", "execComplexEnd", "getOutput 4",
                                     "endCommand 0"));
  });
}

TEST_F(DestinationRecord, ScriptIsRunWithTheRunnersLimitsBeforeThePackages) {
  nodeHost().run([] {
    const ParamsPtr params = containerParams();
    params->options.config->setOsTemplate(QXA::QXAOsTemplate{".debian"});
    DirectDestination destination;
    begin(destination, params);
    EXPECT_EQ(destination.call([](auto& w) { return w.tuneDstSrv(); }).code, 0);
    EXPECT_THAT(calls(), ElementsAre("runner 16384",
                                     run("/usr/sbin/qxctl --skiplock runscript 101 "
                                         "/etc/sysconfig/qx-scripts/dists/scripts/debian.sh"),
                                     "runner 16384", run("/usr/sbin/qxpkg sync_qxpackages 101"),
                                     "endCommand 0"));
  });
}

TEST_F(CreateRecord, CommandsAreRunWithTheRunnersLimits) {
  nodeHost().run([] {
    DirectDestination destination;
    begin(destination, containerParams());
    framework().statuses = {0, 512};
    EXPECT_EQ(destination.call([](auto& w) { return w.createDstSrv(); }).text,
              "Deserializer command '/usr/sbin/qxctl --skiplock mount 101' returned a "
              "non-successful status: 512. Program error output follows:\noutput of 4");
    EXPECT_THAT(
        calls(),
        ElementsAre("runner 16384", run("/usr/sbin/mkqxfs /var/lib/qx/private/101"), "runner 16384",
                    run("/usr/sbin/qxctl --skiplock mount 101"), "getOutput 4", "endCommand 0"));
  });
}

TEST_F(CreateRecord, OnlyTheLowestStatusBitMeansThatTheContainerExists) {
  const struct {
    int result;
    unsigned int mask;
    bool exists;
  } rows[] = {{0, 0, false},   {0, 1, true},  {0, 255, true},
              {0, 254, false}, {0, 6, false}, {-1, 1, false}};
  for (const auto& row : rows) {
    nodeHost().run([&] {
      DirectDestination destination;
      begin(destination, containerParams());
      framework().statusResult = row.result;
      framework().statusMask = row.mask;
      EXPECT_EQ(destination.call([](auto& w) { return w.createDstSrv(); }).text,
                row.exists ? "Both CT private area and config file already exist. "
                             "Refuse migrating into an already existing CT."
                           : "")
          << row.result << " " << row.mask;
      EXPECT_EQ(framework().statusAsked, 255);
    });
  }
}

TEST_F(FinishRecord, RollbackIsBeforeTheUnlockAndTheBaseAfterIt) {
  nodeHost().run([] {
    DirectDestination destination;
    begin(destination, containerParams());
    EXPECT_EQ(destination.call([](auto& w) { return w.lockVPS(); }).code, 0);
    EXPECT_EQ(destination.call([](auto& w) { return w.createDstSrv(); }).code, 0);
    framework() = RecordedFramework();
    EXPECT_EQ(destination.call([](auto& w) { return w.finish(); }).code, 0);
    const std::string umount = run("/usr/sbin/qxctl --skiplock umount 101");
    const std::string destroy = run("/usr/sbin/qxctl --skiplock destroy 101");
    EXPECT_THAT(calls(), ElementsAre("runner 16384", umount, "runner 16384", destroy, "base finish",
                                     "endCommand 0"));
    EXPECT_THAT(framework().locked, ElementsAre("runner 16384", umount, "runner 16384", destroy));
  });
}

TEST_F(FinishRecord, ConvertIsBeforeTheUnlockAndNothingAfterIt) {
  nodeHost().run([] {
    DirectDestination destination;
    begin(destination, containerParams());
    EXPECT_EQ(destination.call([](auto& w) { return w.lockVPS(); }).code, 0);
    EXPECT_EQ(destination.call([](auto& w) { return w.createDstSrv(); }).code, 0);
    EXPECT_EQ(destination.call([](auto& w) { return w.tuneDstSrv(); }).code, 0);
    framework() = RecordedFramework();
    destination.call([](auto& w) { return w.finish(); });
    EXPECT_EQ(destination.result, 0);
    const std::string umount = run("/usr/sbin/qxctl --skiplock umount 101");
    const std::string convert = run("/usr/sbin/qxctl --skiplock convert 101");
    // Intended: neither the base is finished nor the command ended.
    EXPECT_THAT(calls(), ElementsAre("runner 16384", umount, "runner 16384", convert));
    EXPECT_EQ(framework().locked, calls());
    EXPECT_NE(access(kLock, F_OK), 0);
  });
}

TEST_F(FinishRecord, WithoutParametersTheBaseIsFinishedBeforeTheCommandEnds) {
  nodeHost().run([] {
    DirectDestination destination;
    EXPECT_EQ(destination.call([](auto& w) { return w.finish(); }).text, "p2v_params not init");
    EXPECT_THAT(calls(), ElementsAre("base finish", "endCommand 0"));
  });
}
