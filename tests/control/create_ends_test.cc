#include <gtest/gtest.h>

#include "agent/transport/local_transport.h"
#include "fixtures/fake_workers.h"
#include "fixtures/local_ends.h"
#include "fixtures/served.h"
#include "frame/deserializer_agent.h"
#include "frame/serializer_agent.h"
#include "test_control.h"

using namespace fixtures;

namespace {

class ControlEnds : public testing::Test {
 protected:
  static boost::shared_ptr<QXL::QXLConnectionInfo> connectionTo(const std::string& address) {
    boost::shared_ptr<QXL::QXLConnectionInfo> info(new QXL::QXLConnectionInfo);
    info->address = address;
    return info;
  }

  LoadedPlugin plugin;
  FakeWorkers fakes;
  boost::intrusive_ptr<ControlContext> context{new ControlContext};
  TestControl control{context,
                      boost::shared_ptr<QXL::QXLRequestTransport>(new agent::LocalTransport)};
};

}  // namespace

TEST_F(ControlEnds, WithoutAnAddressThereIsNoSource) {
  EXPECT_FALSE(control.createSerializer());
  EXPECT_FALSE(control.accessAgent_);
  control.connectionInfo_ = connectionTo("");
  EXPECT_FALSE(control.createSerializer());
  EXPECT_FALSE(control.accessAgent_);
}

TEST_F(ControlEnds, SourceThatCannotBeReachedIsNoneAndItsErrorIsReported) {
  control.connectionInfo_ = connectionTo("unix:/nonexistent/agent");
  EXPECT_FALSE(control.createSerializer());
  EXPECT_TRUE(control.accessAgent_);
  EXPECT_NE(context->getLastErrorCode(), 0);
  EXPECT_NE(context->getLastErrorText(), "");
}

TEST_F(ControlEnds, SourceIsAProxyOfTheConnectedAgent) {
  control.connectionInfo_ = connectionTo("local");
  const auto source = control.createSerializer();
  ASSERT_TRUE(dynamic_cast<QXLinMigrateP2VSerializerAgent*>(source.get()));
  EXPECT_NE(control.accessAgent_->getConnectedEID(), QXL::QXLEID::EID_INVALID);
  auto& end = dynamic_cast<QXLinMigrateP2VSerializer&>(*source);
  EXPECT_EQ(end.init(nullptr, newParams()), 0);
  EXPECT_EQ(end.stopServices(), 0);
  EXPECT_EQ(Journal::instance().calls, std::vector<std::string>{"stopServices"});
}

TEST_F(ControlEnds, SecondSourceReplacesTheConnection) {
  control.connectionInfo_ = connectionTo("local");
  const auto first = control.createSerializer();
  const auto agent = control.accessAgent_;
  const auto second = control.createSerializer();
  EXPECT_TRUE(second);
  EXPECT_NE(first, second);
  EXPECT_TRUE(control.accessAgent_);
  EXPECT_NE(control.accessAgent_, agent);
}

TEST_F(ControlEnds, DestinationIsAProxyOfThisProcesssAgent) {
  const auto destination = control.createDeserializer();
  ASSERT_TRUE(dynamic_cast<QXLinMigrateP2VDeserializerAgent*>(destination.get()));
  EXPECT_FALSE(control.accessAgent_);
  auto& end = dynamic_cast<QXLinMigrateP2VDeserializer&>(*destination);
  EXPECT_EQ(end.init(nullptr, newParams()), 0);
  EXPECT_EQ(end.lockVPS(), 0);
  EXPECT_EQ(Journal::instance().calls, std::vector<std::string>{"lockVPS"});
}

TEST_F(ControlEnds, WithoutRegistrationsThereAreNoEnds) {
  auto& kit = QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit;
  kit.agentSerializers_.clear();
  kit.agentDeserializers_.clear();
  control.connectionInfo_ = connectionTo("local");
  EXPECT_FALSE(control.createSerializer());
  EXPECT_FALSE(control.createDeserializer());
}
