#include "control/control.h"

#include <string>

#include "frame/factories.h"
#include "frame/plugin.h"
#include "frame/stages.h"
#include "framework/functionality.h"

namespace {

constexpr long long kMebibyte = 1048576;

QXL::QXLHaulControlFactory& kit() {
  return QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit;
}

}  // namespace

P2V::ControlFactory P2V::newControlFactory() {
  return ControlFactory(
      new QXL::QXLFunctionalFactoryLocalImpl<QXL::QXLHaulControlPtr, QXLinMigrateP2VControl>);
}

QXLinMigrateP2VControl::QXLinMigrateP2VControl(
    const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access)
    : QXLHaulControl(access) {}

QXLinMigrateP2VControl::~QXLinMigrateP2VControl() = default;

boost::intrusive_ptr<QXL::QXLHaulSerializerPrototype> QXLinMigrateP2VControl::createSerializer() {
  if (!connectionInfo_ || connectionInfo_->address.empty()) return nullptr;
  accessAgent_ = QXL::QXLAccessAgentPrototype::createInstance(nullptr, nullptr, nullptr);
  const auto handler = getProgressHandler();
  // An agent that could not be reached stays stored; the next call replaces it.
  if (accessAgent_->initializeSync(connectionInfo_, handler) != 0) return nullptr;
  return kit().getMigrateP2VSerializerAgent(accessAgent_->getConnectedEID(), accessAgent_,
                                            P2V::kImplementation);
}

boost::intrusive_ptr<QXL::QXLHaulDeserializerPrototype>
QXLinMigrateP2VControl::createDeserializer() {
  return kit().getMigrateP2VDeserializerAgent(QXL::QXLEID::EID_INVALID, getAccessProvider(),
                                              P2V::kImplementation);
}

template <class End>
End& QXLinMigrateP2VControl::synced(End& end) {
  end->sync(getProgressHandler(), "");
  return end;
}

int QXLinMigrateP2VControl::process() {
  auto source = boost::dynamic_pointer_cast<QXLinMigrateP2VSerializer>(serializer_);
  auto destination = boost::dynamic_pointer_cast<QXLinMigrateP2VDeserializer>(deserializer_);

  if (synced(destination)->lockVPS() != 0) return -1;
  if (synced(destination)->createDstSrv() != 0) return -1;

  long long required = 0;
  long long available = 0;
  if (synced(source)->getUsageDiskSpace(&required) != 0) return -1;
  if (synced(destination)->getFreeDiskSpace(&available) != 0) return -1;
  getContext()->freportProgress("Disk usage: required %lldM, available %lldM", required / kMebibyte,
                                available / kMebibyte);
  // Just enough is enough: no margin on either side.
  if (available < required) {
    getContext()->fsetLastError(-1, "There is not enough free disk space for p2v.");
    return -1;
  }

  std::string quotas;
  if (synced(source)->dumpQuota(&quotas) != 0) return -1;

  // The first copy runs while the server's services still do.
  synced(source);
  const auto channel = connector_->createChannel(channelSettings_);
  if (!channel) return -1;
  if (synced(source)->startRSyncServer(channel->getSerializerEnd()) != 0) return -1;
  if (synced(destination)->rSync(channel->getDeserializerEnd()) != 0) return -1;
  if (synced(source)->waitRSyncServer() != 0) return -1;

  // The second brings what changed meanwhile.
  if (synced(source)->stopServices() != 0) return -1;
  synced(source);
  const auto channel2 = connector_->createChannel(channelSettings_);
  if (!channel2) return -1;
  if (synced(source)->startRSyncServer2(channel2->getSerializerEnd()) != 0) return -1;
  if (synced(destination)->rSync2(channel2->getDeserializerEnd()) != 0) return -1;
  if (synced(source)->waitRSyncServer2() != 0) return -1;

  if (synced(destination)->restoreQuota(quotas) != 0) return -1;
  if (synced(destination)->tuneDstSrv() != 0) return -1;
  return 0;
}
