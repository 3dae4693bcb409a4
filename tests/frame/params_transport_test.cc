#include "frame/params_transport.h"

#include <gtest/gtest.h>

#include "agent/wire/message.h"
#include "frame/deserialize_operator.h"
#include "frame/deserializer_agent.h"
#include "frame/serialize_operator.h"
#include "frame/serializer_agent.h"
#include "framework/errors.h"
#include "framework/migrate_params.h"
#include "support/child_test.h"

namespace {

typedef boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> ParamsPtr;
typedef boost::intrusive_ptr<QXL::QXLMessageIterator> MessagePtr;

MessagePtr newMessage() { return MessagePtr(new agent::Message()); }

ParamsPtr fullRecord() {
  ParamsPtr params(new QXA::QXAMigrateP2VSerializerParams);
  params->ctid = 101;
  params->options.excludes = {"/tmp/*", "/proc/*"};
  params->options.config.reset(new QXA::QXAEnvConfig);
  params->options.config->setDistribution(QXA::QXADistribution{"debian", "12"});
  params->options.keepOnFailure = true;
  params->options.callerFlag = true;
  params->options.services = {{"mysql"}, {"apache2"}};
  params->options.callerText = "text";
  return params;
}

void expectFullRecord(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& base) {
  const auto params = boost::dynamic_pointer_cast<QXA::QXAMigrateP2VSerializerParams>(base);
  ASSERT_TRUE(params);
  const ParamsPtr expected = fullRecord();
  EXPECT_EQ(params->ctid, 101);
  EXPECT_EQ(params->options.excludes, expected->options.excludes);
  EXPECT_TRUE(params->options.keepOnFailure);
  EXPECT_TRUE(params->options.callerFlag);
  ASSERT_EQ(params->options.services.size(), 2u);
  EXPECT_EQ(params->options.services[0].name, "mysql");
  EXPECT_EQ(params->options.services[1].name, "apache2");
  EXPECT_EQ(params->options.callerText, "text");
  ASSERT_TRUE(params->options.config);
  std::optional<QXA::QXADistribution> distribution;
  params->options.config->getDistribution(distribution);
  EXPECT_EQ(distribution, (QXA::QXADistribution{"debian", "12"}));
}

// Writes with one and reads with another of the four that carry the record.
template <class Writer, class Reader>
void expectRoundTrip(Writer& writer, Reader& reader) {
  const MessagePtr message = newMessage();
  EXPECT_EQ(writer.serializeParams(fullRecord(), message), 0);
  const auto params = P2V::newParams();
  EXPECT_EQ(reader.deserializeParams(message, params), 0) << QXL::getErrorMessage();
  expectFullRecord(params);
}

}  // namespace

TEST(ParamsTransport, RoundTripKeepsEveryField) {
  QXLinMigrateP2VSerializeOperator serialize;
  QXLinMigrateP2VDeserializeOperator deserialize;
  QXLinMigrateP2VSerializerAgent source(QXL::QXLEID::EID_INVALID, nullptr);
  QXLinMigrateP2VDeserializerAgent destination(QXL::QXLEID::EID_INVALID, nullptr);
  expectRoundTrip(source, serialize);
  expectRoundTrip(serialize, source);
  expectRoundTrip(destination, deserialize);
  expectRoundTrip(deserialize, destination);
}

TEST(ParamsTransport, MessageWithoutARecordIsRefused) {
  EXPECT_NE(P2V::deserializeParams(newMessage(), P2V::newParams()), 0);
}

TEST(ParamsTransport, RecordOfAnotherKindIsRefused) {
  const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> other(
      new QXL::QXLHaulSerializerBaseParams);
  EXPECT_EQ(P2V::serializeParams(other, newMessage()), -1);
  EXPECT_EQ(P2V::deserializeParams(newMessage(), other), -1);
}

TEST(ParamsTransport, NullRecordStopsOnTheAssertion) {
  test_support::runInChildExpectingAbort([] { P2V::serializeParams(nullptr, newMessage()); },
                                         "px != 0");
  test_support::runInChildExpectingAbort([] { P2V::deserializeParams(newMessage(), nullptr); },
                                         "px != 0");
}
