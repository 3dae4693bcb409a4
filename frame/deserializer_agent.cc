#include "frame/deserializer_agent.h"

#include "frame/answer_fields.h"
#include "frame/params_transport.h"
#include "frame/plugin.h"

QXLinMigrateP2VDeserializerAgent::QXLinMigrateP2VDeserializerAgent(
    const QXL::QXLEID& eid, const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access)
    : QXLHaulSerializerBaseAgentPrototype(eid, access, P2V::kDeserializeOperatorName, 0) {}

QXLinMigrateP2VDeserializerAgent::~QXLinMigrateP2VDeserializerAgent() = default;

int QXLinMigrateP2VDeserializerAgent::lockVPS() { return callStage("lockVPS"); }

int QXLinMigrateP2VDeserializerAgent::createDstSrv() { return callStage("createDstSrv"); }

int QXLinMigrateP2VDeserializerAgent::rSync(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return callStageWithHandle("rSync", channel);
}

int QXLinMigrateP2VDeserializerAgent::rSync2(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return callStageWithHandle("rSync2", channel);
}

int QXLinMigrateP2VDeserializerAgent::restoreQuota(const std::string& text) {
  // An empty text is sent too: a field without a value is not a missing field.
  beginStage("restoreQuota")->putValueBase64(text, P2V::kQuotaField);
  return endStage();
}

int QXLinMigrateP2VDeserializerAgent::tuneDstSrv() { return callStage("tuneDstSrv"); }

int QXLinMigrateP2VDeserializerAgent::startDstSrv() { return callStage("startDstSrv"); }

int QXLinMigrateP2VDeserializerAgent::getFreeDiskSpace(long long* bytes) {
  beginStage("getFreeDiskSpace");
  return endStageWithAnswer(new P2V::BytesReader(bytes));
}

int QXLinMigrateP2VDeserializerAgent::serializeParams(
    const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
    const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) {
  return P2V::serializeParams(params, out);
}

int QXLinMigrateP2VDeserializerAgent::deserializeParams(
    const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
    const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
  return P2V::deserializeParams(in, params);
}
