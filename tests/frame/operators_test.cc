#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "agent/wire/message.h"
#include "agent/wire/steps.h"
#include "fixtures/fake_workers.h"
#include "fixtures/served.h"
#include "frame/deserialize_operator.h"
#include "frame/init.h"
#include "frame/plugin.h"
#include "frame/serialize_operator.h"
#include "framework/errors.h"
#include "support/temp_tree.h"

using namespace fixtures;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const char* const kSourceStages[] = {"startRSyncServer",  "waitRSyncServer",  "stopServices",
                                     "startRSyncServer2", "waitRSyncServer2", "dumpQuota",
                                     "shutdownSrcSrv",    "destroySrcSrv",    "getUsageDiskSpace"};
const char* const kDestinationStages[] = {"lockVPS",     "createDstSrv",    "rSync",
                                          "rSync2",      "restoreQuota",    "tuneDstSrv",
                                          "startDstSrv", "getFreeDiskSpace"};

template <class Stages>
void expectTable(const QXL::QXLOperatorFunctionalPrototype& op, const Stages& stages) {
  const auto& methods = op.getMethods();
  for (const char* stage : stages) {
    const auto row = methods.find(stage);
    ASSERT_NE(row, methods.end()) << stage;
    EXPECT_TRUE(row->second.handler) << stage;
    EXPECT_EQ(row->second.first, 0);
    EXPECT_EQ(row->second.second, 0);
  }
  // The row that ends the table is intentionally there as well.
  const auto end = methods.find("");
  ASSERT_NE(end, methods.end());
  EXPECT_FALSE(end->second.handler);
  EXPECT_EQ(methods.size(), std::size(stages) + 1);
}

struct Source : FakeWorkers, OperatorSession {
  Source() : OperatorSession(factoryQXLinMigrateP2VSerializeOperator) {
    EXPECT_EQ(start(newParams()).text, "");
  }
};

struct Destination : FakeWorkers, OperatorSession {
  Destination() : OperatorSession(factoryQXLinMigrateP2VDeserializeOperator) {
    EXPECT_EQ(start(newParams()).text, "");
  }
};

const std::vector<std::string>& calls() { return Journal::instance().calls; }

// The ends of a new pipe, for a channel to take over.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(fd), 0); }
  int fd[2];
};

}  // namespace

// What the agent knows of a stage stands in one table.
TEST(Operators, EveryStageHasItsTextInTheAgentsTable) {
  for (const auto& factory :
       {factoryQXLinMigrateP2VSerializeOperator, factoryQXLinMigrateP2VDeserializeOperator}) {
    const auto op =
        boost::dynamic_pointer_cast<QXL::QXLOperatorFunctionalPrototype>(factory->newOperator());
    ASSERT_TRUE(op);
    for (const auto& [stage, method] : op->getMethods()) {
      if (!method.handler) continue;
      EXPECT_STRNE(agent::stepOf(stage).text, "") << stage;
    }
  }
  EXPECT_STREQ(agent::stepOf("noSuchStage").text, "");
}

TEST(SerializeOperator, TableHasTheSourceStagesAndItsEnd) {
  expectTable(QXLinMigrateP2VSerializeOperator(), kSourceStages);
}

TEST(DeserializeOperator, TableHasTheDestinationStagesAndItsEnd) {
  expectTable(QXLinMigrateP2VDeserializeOperator(), kDestinationStages);
}

TEST(SerializeOperator, StagesReachTheWorkersMethods) {
  for (const std::string stage : kSourceStages) {
    if (stage.find("startRSync") == 0) continue;
    Source source;
    EXPECT_EQ(source.request(stage).code, 0) << stage;
    EXPECT_THAT(calls(), ElementsAre(stage));
  }
}

TEST(DeserializeOperator, StagesReachTheWorkersMethods) {
  for (const std::string stage : kDestinationStages) {
    if (stage.find("rSync") == 0 || stage == "restoreQuota") continue;
    Destination destination;
    EXPECT_EQ(destination.request(stage).code, 0) << stage;
    EXPECT_THAT(calls(), ElementsAre(stage));
  }
}

TEST(SerializeOperator, ChannelOfTheRequestIsHandedOn) {
  for (const std::string stage : {"startRSyncServer", "startRSyncServer2"}) {
    Source source;
    const Pipe channel;
    EXPECT_EQ(source.channelStage(stage, channel.fd[0], channel.fd[1]).code, 0);
    EXPECT_THAT(calls(), ElementsAre(stage + "(channel)"));
  }
}

TEST(DeserializeOperator, ChannelOfTheRequestIsHandedOn) {
  for (const std::string stage : {"rSync", "rSync2"}) {
    Destination destination;
    const Pipe channel;
    EXPECT_EQ(destination.channelStage(stage, channel.fd[0], channel.fd[1]).code, 0);
    EXPECT_THAT(calls(), ElementsAre(stage + "(channel)"));
  }
}

TEST(SerializeOperator, WithoutAChannelTheWorkerIsNotCalled) {
  Source source;
  for (const char* stage : {"startRSyncServer", "startRSyncServer2"}) {
    const Served served = source.request(stage);
    EXPECT_EQ(served.code, 400);
    EXPECT_THAT(served.text, HasSubstr("channel required"));
  }
  EXPECT_THAT(calls(), IsEmpty());
}

TEST(DeserializeOperator, WithoutAChannelTheWorkerIsNotCalled) {
  Destination destination;
  for (const char* stage : {"rSync", "rSync2"}) {
    EXPECT_EQ(destination.request(stage).code, 400);
  }
  EXPECT_THAT(calls(), IsEmpty());
}

TEST(SerializeOperator, AnswersAreWrittenOnceByTheWorker) {
  Source source;
  const Served quota = source.request("dumpQuota");
  EXPECT_EQ(quota.answer->fieldsPut, 1);
  EXPECT_EQ(quota.quota(), "the quotas");
  const Served usage = source.request("getUsageDiskSpace");
  EXPECT_EQ(usage.answer->fieldsPut, 1);
  EXPECT_EQ(usage.bytes(), 1000);
}

TEST(DeserializeOperator, AnswerIsWrittenOnceByTheWorker) {
  Destination destination;
  const Served free = destination.request("getFreeDiskSpace");
  EXPECT_EQ(free.answer->fieldsPut, 1);
  EXPECT_EQ(free.bytes(), 2000);
}

TEST(DeserializeOperator, QuotaTextOfTheRequestIsHandedOn) {
  Destination destination;
  const auto restore = [&](const std::string& text) {
    return destination.request("restoreQuota",
                               [&](QXL::QXLMessageIterator& in) { in.putValueBase64(text, 1811); });
  };
  EXPECT_EQ(restore("limits 0 0\n").code, 0);
  EXPECT_EQ(restore("").code, 0);
  EXPECT_THAT(calls(), ElementsAre("restoreQuota('limits 0 0\n')", "restoreQuota('')"));
}

TEST(DeserializeOperator, MissingQuotaTextIsRefusedWithoutCallingTheWorker) {
  Destination destination;
  const Served served = destination.request("restoreQuota");
  const boost::intrusive_ptr<agent::Message> expected(new agent::Message());
  QXL::addError(expected, QXL::QXLErrors, 400, "param required");
  EXPECT_EQ(served.code, 400);
  EXPECT_EQ(served.text, expected->firstError()->second);
  EXPECT_THAT(served.text, HasSubstr("param required"));
  EXPECT_EQ(served.answer->errorsPut, 1);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST(SerializeOperator, EmptyStageNameFindsTheNullHandler) {
  Source source;
  EXPECT_EQ(source.request("").code, 405);
  EXPECT_EQ(source.request("noSuchStage").code, 404);
  // A stage of the other end is unknown here.
  EXPECT_EQ(source.request("lockVPS").code, 404);
}

TEST(DeserializeOperator, EmptyStageNameFindsTheNullHandler) {
  Destination destination;
  EXPECT_EQ(destination.request("").code, 405);
  EXPECT_EQ(destination.request("stopServices").code, 404);
}

TEST(SerializeOperator, StageBeforeInitIsNotDispatched) {
  const FakeWorkers fakes;
  OperatorSession session(factoryQXLinMigrateP2VSerializeOperator);
  EXPECT_EQ(session.request("stopServices").code, 409);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST(SerializeOperator, FailureOfAStageIsTheAnswersError) {
  Source source;
  Journal::instance().failing = "stopServices";
  const Served served = source.request("stopServices");
  EXPECT_EQ(served.code, -7);
  EXPECT_EQ(served.text, "stopServices failed");
  EXPECT_EQ(served.answer->errorsPut, 1);
}

// Stops two services, with the agent's folder at `folder`.
Served stopTwoServices(const std::string& folder) {
  const FakeWorkers fakes;
  OperatorSession session(factoryQXLinMigrateP2VSerializeOperator);
  const ParamsPtr params = newParams();
  for (const char* name : {"one", "two"}) {
    QXL::QXLService service;
    service.name = name;
    params->options.services.push_back(service);
  }
  EXPECT_EQ(session.start(params).text, "");
  setenv("QXA_TMPDIR", folder.c_str(), 1);
  Served served = session.request("stopServices");
  unsetenv("QXA_TMPDIR");
  served.lines = calls();
  return served;
}

TEST(SerializeOperator, WritesDownTheBootAndWhatIsToBeStartedInWhichOrder) {
  const test_support::TempTree folder;
  EXPECT_THAT(stopTwoServices(folder.root()).lines, testing::Contains("stopServices"));
  EXPECT_EQ(test_support::readFile(folder.path("stopped-services")),
            test_support::readFile("/proc/sys/kernel/random/boot_id") + "two\none\n");
}

TEST(SerializeOperator, StopsNoServiceThatItCannotWriteDown) {
  const Served served = stopTwoServices("/no/such/folder");
  EXPECT_EQ(served.code, -1);
  EXPECT_EQ(served.text,
            "no service is stopped that could not be started again: cannot write "
            "/no/such/folder/stopped-services: No such file or directory");
  EXPECT_THAT(served.lines, testing::Not(testing::Contains("stopServices")));
}

TEST(SerializeOperator, HoldsItsOwnWorkerFromCreateToFinish) {
  const FakeWorkers fakes;
  OperatorSession first(factoryQXLinMigrateP2VSerializeOperator);
  OperatorSession second(factoryQXLinMigrateP2VSerializeOperator);
  auto& one = dynamic_cast<QXLinMigrateP2VSerializeOperator&>(first.op());
  auto& other = dynamic_cast<QXLinMigrateP2VSerializeOperator&>(second.op());
  EXPECT_FALSE(one.getSerializer());
  EXPECT_EQ(first.request("create").code, 0);
  EXPECT_EQ(second.request("create").code, 0);
  EXPECT_TRUE(dynamic_cast<FakeSerializer*>(one.getSerializer().get()));
  EXPECT_NE(one.getSerializer(), other.getSerializer());
  EXPECT_EQ(first.request("finish").code, 0);
  EXPECT_FALSE(one.getSerializer());
}

TEST(DeserializeOperator, HoldsItsWorkerFromCreateToFinish) {
  const FakeWorkers fakes;
  OperatorSession session(factoryQXLinMigrateP2VDeserializeOperator);
  auto& op = dynamic_cast<QXLinMigrateP2VDeserializeOperator&>(session.op());
  EXPECT_FALSE(op.getSerializer());
  EXPECT_EQ(session.request("create").code, 0);
  EXPECT_TRUE(dynamic_cast<FakeDeserializer*>(op.getSerializer().get()));
  EXPECT_EQ(session.request("finish").code, 0);
  EXPECT_FALSE(op.getSerializer());
}

TEST(StageOperators, WithoutARegisteredWorkerNoneIsMade) {
  finiLibrary();
  OperatorSession source(factoryQXLinMigrateP2VSerializeOperator);
  EXPECT_NE(source.request("create").code, 0);
  OperatorSession destination(factoryQXLinMigrateP2VDeserializeOperator);
  EXPECT_NE(destination.request("create").code, 0);
}

TEST(StageOperators, NewParametersHaveTheirDefaults) {
  QXLinMigrateP2VSerializeOperator serialize;
  QXLinMigrateP2VDeserializeOperator deserialize;
  for (const auto& base : {serialize.newParams(), deserialize.newParams()}) {
    const auto params = boost::dynamic_pointer_cast<QXA::QXAMigrateP2VSerializerParams>(base);
    ASSERT_TRUE(params);
    EXPECT_EQ(params->ctid, 0);
    EXPECT_THAT(params->options.excludes, IsEmpty());
    EXPECT_FALSE(params->options.config);
    EXPECT_FALSE(params->options.keepOnFailure);
    EXPECT_FALSE(params->options.callerFlag);
    EXPECT_TRUE(params->options.services.empty());
    EXPECT_EQ(params->options.callerText, "");
  }
  EXPECT_NE(serialize.newParams(), serialize.newParams());
}
