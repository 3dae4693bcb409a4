// Callers without the right to run stages, and workers without parameters of
// their own kind.
#include <functional>

#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void expectRefused(const Served& served, const std::string& stage) {
  EXPECT_EQ(served.code, 414) << stage;
  EXPECT_EQ(served.text, "") << stage;
  EXPECT_EQ(served.answer->errorsPut, 1) << stage;
  EXPECT_EQ(served.answer->fieldsPut, 0) << stage;
  EXPECT_THAT(served.lines, IsEmpty()) << stage;
}

typedef boost::intrusive_ptr<QXL::QXLChannelEndPrototype> EndPtr;

}  // namespace

TEST(Access, SourceRefusesEveryStageToAStranger) {
  ScratchHost host = serverHost();
  host.tool("/etc/init.d/mysql");
  host.run([&] {
    Source source;
    const ParamsPtr params = newParams();
    params->options.services = {{"mysql"}};
    EXPECT_EQ(source.start(params).code, 0);
    host.clearCalls();
    source.uid = kStranger;
    for (const char* stage : {"waitRSyncServer", "stopServices", "waitRSyncServer2", "dumpQuota",
                              "shutdownSrcSrv", "destroySrcSrv", "getUsageDiskSpace"}) {
      expectRefused(source.request(stage), stage);
    }
    {
      Source other;
      EXPECT_EQ(other.start(params).code, 0);
      other.uid = kStranger;
      expectRefused(other.request("finish"), "finish");
    }
    for (const char* stage : {"startRSyncServer", "startRSyncServer2"}) {
      Source other;
      EXPECT_EQ(other.start(params).code, 0);
      host.clearCalls();
      other.uid = kStranger;
      const Pipe pipe;
      expectRefused(other.channelStage(stage, pipe.end[0], pipe.end[1]), stage);
      EXPECT_THAT(host.calls(), IsEmpty());
    }
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(Access, DestinationRefusesEveryStageToAStranger) {
  nodeHost().run([] {
    for (const char* stage : {"lockVPS", "createDstSrv", "tuneDstSrv", "getFreeDiskSpace", "finish",
                              "rSync", "rSync2", "restoreQuota"}) {
      Destination destination;
      EXPECT_EQ(destination.start(containerParams()).code, 0);
      destination.uid = kStranger;
      const std::string name = stage;
      if (name.find("rSync") == 0) {
        const Pipe pipe;
        expectRefused(destination.channelStage(stage, pipe.end[0], pipe.end[1]), stage);
      } else {
        expectRefused(destination.request(
                          stage, [](QXL::QXLMessageIterator& in) { in.putValueBase64("", 1811); }),
                      stage);
      }
    }
    EXPECT_NE(access(kLock, F_OK), 0);
  });
}

TEST(Access, DestinationRunsNothingForAStranger) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Destination destination;
    EXPECT_EQ(destination.start(containerParams()).code, 0);
    destination.uid = kStranger;
    destination.request("createDstSrv");
    destination.request("finish");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(Access, StartDstSrvIntentionallySucceedsForAStranger) {
  DirectDestination destination;
  const Served served =
      destination.call([](auto& worker) { return worker.startDstSrv(); }, kStranger);
  EXPECT_EQ(destination.result, 0);
  EXPECT_TRUE(destination.leftOpen);
  EXPECT_NE(served.code, 414);
}

TEST(Access, InitIsRefusedToAStrangerToo) {
  serverHost().run([] {
    Source source;
    source.uid = kStranger;
    EXPECT_EQ(source.start(newParams()).code, 414);
    DirectDestination destination;
    const ParamsPtr params = newParams();
    expectRefused(
        destination.call([&](auto& worker) { return worker.init(nullptr, params); }, kStranger),
        "init");
    EXPECT_EQ(destination.result, 414);
    EXPECT_FALSE(destination.leftOpen);
    EXPECT_THAT(params->options.excludes, IsEmpty());
  });
}

TEST(Access, RefusedStageEndsItsCommandAndReturnsItsCode) {
  DirectSource source;
  source.call([](auto& worker) { return worker.shutdownSrcSrv(); }, kStranger);
  EXPECT_EQ(source.result, 414);
  EXPECT_FALSE(source.leftOpen);
}

TEST(WithoutParameters, SourceStagesThatNeedThemFail) {
  ScratchHost host = serverHost();
  host.run([&] {
    DirectSource source;
    const Served init = source.init(
        boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>(new QXL::QXLHaulSerializerBaseParams));
    EXPECT_EQ(init.code, -1);
    EXPECT_EQ(init.text, "p2v_params not init");
    EXPECT_THAT(host.calls(), IsEmpty());

    EXPECT_EQ(source.call([](auto& worker) { return worker.stopServices(); }).text,
              "p2v_params not init");
    EXPECT_EQ(source.result, -1);
    long long bytes = 42;
    EXPECT_EQ(source.call([&](auto& worker) { return worker.getUsageDiskSpace(&bytes); }).text,
              "p2v_params not init");
    EXPECT_EQ(bytes, 42);
  });
}

TEST(WithoutParameters, DestinationStagesFail) {
  ScratchHost host = nodeHost();
  host.run([&] {
    const EndPtr end;
    long long bytes = 42;
    typedef DRAHN2VPSMigrateDeserializerSys Worker;
    const std::function<int(Worker&)> stages[] = {
        [](Worker& worker) { return worker.lockVPS(); },
        [](Worker& worker) { return worker.createDstSrv(); },
        [&](Worker& worker) { return worker.rSync(end); },
        [&](Worker& worker) { return worker.rSync2(end); },
        [](Worker& worker) { return worker.restoreQuota(""); },
        [](Worker& worker) { return worker.tuneDstSrv(); },
        [&](Worker& worker) { return worker.getFreeDiskSpace(&bytes); },
    };
    for (const auto& stage : stages) {
      DirectDestination destination;
      // Never initialised at all.
      EXPECT_EQ(destination.call(stage).text, "p2v_params not init");
      EXPECT_EQ(destination.result, -1);
      EXPECT_FALSE(destination.leftOpen);
    }
    EXPECT_EQ(bytes, 42);
    DirectDestination destination;
    EXPECT_EQ(destination
                  .init(boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>(
                      new QXL::QXLHaulSerializerBaseParams))
                  .text,
              "p2v_params not init");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(WithoutParameters, InitReportsTheFrameworksErrorForANullRecord) {
  ScratchHost host = serverHost();
  host.run([&] {
    DirectSource source;
    EXPECT_EQ(source.init(nullptr).text, "migration parameters missing");
    EXPECT_EQ(source.result, -1);
    EXPECT_FALSE(source.leftOpen);
    DirectDestination destination;
    EXPECT_EQ(destination.init(nullptr).text, "migration parameters missing");
    EXPECT_EQ(destination.result, -1);
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}
