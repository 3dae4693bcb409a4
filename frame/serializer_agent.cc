#include "frame/serializer_agent.h"

#include "frame/answer_fields.h"
#include "frame/params_transport.h"
#include "frame/plugin.h"

QXLinMigrateP2VSerializerAgent::QXLinMigrateP2VSerializerAgent(
    const QXL::QXLEID& eid, const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access)
    : QXLHaulSerializerBaseAgentPrototype(eid, access, P2V::kSerializeOperatorName, 0) {}

QXLinMigrateP2VSerializerAgent::~QXLinMigrateP2VSerializerAgent() = default;

int QXLinMigrateP2VSerializerAgent::startRSyncServer(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return callStageWithHandle("startRSyncServer", channel);
}

int QXLinMigrateP2VSerializerAgent::waitRSyncServer() { return callStage("waitRSyncServer"); }

int QXLinMigrateP2VSerializerAgent::stopServices() { return callStage("stopServices"); }

int QXLinMigrateP2VSerializerAgent::startRSyncServer2(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return callStageWithHandle("startRSyncServer2", channel);
}

int QXLinMigrateP2VSerializerAgent::waitRSyncServer2() { return callStage("waitRSyncServer2"); }

int QXLinMigrateP2VSerializerAgent::dumpQuota(std::string* text) {
  beginStage("dumpQuota");
  return endStageWithAnswer(new P2V::QuotaReader(text));
}

int QXLinMigrateP2VSerializerAgent::shutdownSrcSrv() { return callStage("shutdownSrcSrv"); }

int QXLinMigrateP2VSerializerAgent::destroySrcSrv() { return callStage("destroySrcSrv"); }

int QXLinMigrateP2VSerializerAgent::getUsageDiskSpace(long long* bytes) {
  beginStage("getUsageDiskSpace");
  return endStageWithAnswer(new P2V::BytesReader(bytes));
}

int QXLinMigrateP2VSerializerAgent::serializeParams(
    const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
    const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) {
  return P2V::serializeParams(params, out);
}

int QXLinMigrateP2VSerializerAgent::deserializeParams(
    const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
    const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
  return P2V::deserializeParams(in, params);
}
