#include "frame/serialize_operator.h"

#include "frame/params_transport.h"
#include "frame/plugin.h"
#include "framework/functionality.h"

namespace {

typedef QXL::QXLOperatorFunctionalPrototype::QXLOpHandler Handler;

struct Served {
  const char* stage;
  Handler handler;
};

}  // namespace

template <auto stage>
void QXLinMigrateP2VSerializeOperator::plain(const Message&, const Message&) {
  ((*getSerializer()).*stage)();
}

template <auto stage>
void QXLinMigrateP2VSerializeOperator::withChannel(const Message& in, const Message& out) {
  if (const auto handle = getPhysHandle(in, out)) ((*getSerializer()).*stage)(handle);
}

QXLinMigrateP2VSerializeOperator::QXLinMigrateP2VSerializeOperator() {
  typedef QXLinMigrateP2VSerializeOperator Self;
  typedef QXLinMigrateP2VSerializer Stages;
  const Served table[] = {
      {"startRSyncServer", static_cast<Handler>(&Self::withChannel<&Stages::startRSyncServer>)},
      {"waitRSyncServer", static_cast<Handler>(&Self::plain<&Stages::waitRSyncServer>)},
      {"stopServices", static_cast<Handler>(&Self::plain<&Stages::stopServices>)},
      {"startRSyncServer2", static_cast<Handler>(&Self::withChannel<&Stages::startRSyncServer2>)},
      {"waitRSyncServer2", static_cast<Handler>(&Self::plain<&Stages::waitRSyncServer2>)},
      {"dumpQuota", static_cast<Handler>(&Self::dumpQuota)},
      {"shutdownSrcSrv", static_cast<Handler>(&Self::plain<&Stages::shutdownSrcSrv>)},
      {"destroySrcSrv", static_cast<Handler>(&Self::plain<&Stages::destroySrcSrv>)},
      {"getUsageDiskSpace", static_cast<Handler>(&Self::getUsageDiskSpace)},
      // The end of the table goes into the map as well: agents rely on finding a
      // null handler, not a missing row, under the empty stage name.
      {"", nullptr},
  };
  for (const Served& row : table) methods_[row.stage] = QXLOpMethodInfo{row.handler, 0, 0};
}

QXLinMigrateP2VSerializeOperator::~QXLinMigrateP2VSerializeOperator() = default;

boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> QXLinMigrateP2VSerializeOperator::newParams() {
  return P2V::newParams();
}

int QXLinMigrateP2VSerializeOperator::deserializeParams(
    const Message& in, const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
  return P2V::deserializeParams(in, params);
}

int QXLinMigrateP2VSerializeOperator::serializeParams(
    const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params, const Message& out) {
  return P2V::serializeParams(params, out);
}

boost::intrusive_ptr<QXL::QXLHaulSerializerBasePrototype>
QXLinMigrateP2VSerializeOperator::createSerializer() {
  const auto access = QXL::QXLOpSyncAccessPrototype::createInstance("", this);
  return QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit.getMigrateP2VSerializerLocal(
      access, P2V::kImplementation);
}

boost::intrusive_ptr<QXLinMigrateP2VSerializer> QXLinMigrateP2VSerializeOperator::getSerializer()
    const {
  return boost::dynamic_pointer_cast<QXLinMigrateP2VSerializer>(getHeldSerializer());
}

void QXLinMigrateP2VSerializeOperator::dumpQuota(const Message&, const Message&) {
  std::string text;
  getSerializer()->dumpQuota(&text);
}

void QXLinMigrateP2VSerializeOperator::getUsageDiskSpace(const Message&, const Message&) {
  long long bytes = 0;
  getSerializer()->getUsageDiskSpace(&bytes);
}
