#include "frame/deserialize_operator.h"

#include "frame/params_transport.h"
#include "frame/plugin.h"
#include "framework/errors.h"
#include "framework/functionality.h"

namespace {

typedef QXL::QXLOperatorFunctionalPrototype::QXLOpHandler Handler;

struct Stage {
  const char* stage;
  Handler handler;
};

}  // namespace

template <auto stage>
void QXLinMigrateP2VDeserializeOperator::plain(const Message&, const Message&) {
  ((*getSerializer()).*stage)();
}

template <auto stage>
void QXLinMigrateP2VDeserializeOperator::withChannel(const Message& in, const Message& out) {
  if (const auto handle = getPhysHandle(in, out)) ((*getSerializer()).*stage)(handle);
}

QXLinMigrateP2VDeserializeOperator::QXLinMigrateP2VDeserializeOperator() {
  typedef QXLinMigrateP2VDeserializeOperator Self;
  typedef QXLinMigrateP2VDeserializer Stages;
  const Stage table[] = {
      {"lockVPS", static_cast<Handler>(&Self::plain<&Stages::lockVPS>)},
      {"createDstSrv", static_cast<Handler>(&Self::plain<&Stages::createDstSrv>)},
      {"rSync", static_cast<Handler>(&Self::withChannel<&Stages::rSync>)},
      {"rSync2", static_cast<Handler>(&Self::withChannel<&Stages::rSync2>)},
      {"restoreQuota", static_cast<Handler>(&Self::restoreQuota)},
      {"tuneDstSrv", static_cast<Handler>(&Self::plain<&Stages::tuneDstSrv>)},
      {"startDstSrv", static_cast<Handler>(&Self::plain<&Stages::startDstSrv>)},
      {"getFreeDiskSpace", static_cast<Handler>(&Self::getFreeDiskSpace)},
      // The end of the table goes into the map as well: agents rely on finding a
      // null handler, not a missing row, under the empty stage name.
      {"", nullptr},
  };
  for (const Stage& row : table) methods_[row.stage] = QXLOpMethodInfo{row.handler, 0, 0};
}

QXLinMigrateP2VDeserializeOperator::~QXLinMigrateP2VDeserializeOperator() = default;

boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>
QXLinMigrateP2VDeserializeOperator::newParams() {
  return P2V::newParams();
}

int QXLinMigrateP2VDeserializeOperator::deserializeParams(
    const Message& in, const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
  return P2V::deserializeParams(in, params);
}

int QXLinMigrateP2VDeserializeOperator::serializeParams(
    const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params, const Message& out) {
  return P2V::serializeParams(params, out);
}

boost::intrusive_ptr<QXL::QXLHaulSerializerBasePrototype>
QXLinMigrateP2VDeserializeOperator::createSerializer() {
  const auto access = QXL::QXLOpSyncAccessPrototype::createInstance("", this);
  return QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit.getMigrateP2VDeserializerLocal(
      access, P2V::kImplementation);
}

boost::intrusive_ptr<QXLinMigrateP2VDeserializer>
QXLinMigrateP2VDeserializeOperator::getSerializer() const {
  return boost::dynamic_pointer_cast<QXLinMigrateP2VDeserializer>(getHeldSerializer());
}

void QXLinMigrateP2VDeserializeOperator::restoreQuota(const Message& in, const Message& out) {
  std::string text;
  if (in->getValueBase64(text, P2V::kQuotaField) != 0) {
    QXL::addError(out, QXL::QXLErrors, P2V::kBadRequest, "param required");
    return;
  }
  getSerializer()->restoreQuota(text);
}

void QXLinMigrateP2VDeserializeOperator::getFreeDiskSpace(const Message&, const Message&) {
  long long bytes = 0;
  getSerializer()->getFreeDiskSpace(&bytes);
}
