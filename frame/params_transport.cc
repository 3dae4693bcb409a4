#include "frame/params_transport.h"

#include "framework/migrate_params.h"

namespace P2V {

namespace {

// The object's field id: the message's current position.
constexpr int kHere = 0;

}  // namespace

boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> newParams() {
  // Made with the record's own type, so that the last owner destroys all of it.
  return boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>(
      new QXA::QXAMigrateP2VSerializerParams);
}

int serializeParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
                    const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) {
  const auto* record = dynamic_cast<const QXA::QXAMigrateP2VSerializerParams*>(&*params);
  return record ? out->putObj(*record, kHere) : -1;
}

int deserializeParams(const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
                      const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
  auto* record = dynamic_cast<QXA::QXAMigrateP2VSerializerParams*>(&*params);
  return record ? in->getObj(*record, kHere) : -1;
}

}  // namespace P2V
