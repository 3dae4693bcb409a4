#include "framework/functionality.h"

namespace QXL {

// The process's own kit: plug-ins find it instead of making one.
template class QXLFunctionality<QXLHaulControlFactory>;

QXLHaulControlFactory::QXLHaulControlFactory() = default;
QXLHaulControlFactory::~QXLHaulControlFactory() = default;

namespace {

template <class Map>
auto find(const Map& factories, const std::string& name) {
  const auto found = factories.find(name);
  return found == factories.end() ? typename Map::mapped_type() : found->second;
}

}  // namespace

QXLHaulControlPtr QXLHaulControlFactory::getMigrateP2VControl(const QXLAccessProviderPtr& access,
                                                              const std::string& name) const {
  const auto factory = find(controls_, name);
  return factory ? factory->create(access) : nullptr;
}

QXLHaulSerializerPtr QXLHaulControlFactory::getMigrateP2VSerializerLocal(
    const QXLAccessProviderPtr& access, const std::string& name) const {
  const auto factory = find(localSerializers_, name);
  return factory ? factory->create(access) : nullptr;
}

QXLHaulSerializerPtr QXLHaulControlFactory::getMigrateP2VSerializerAgent(
    const QXLEID& eid, const QXLAccessProviderPtr& access, const std::string& name) const {
  const auto factory = find(agentSerializers_, name);
  return factory ? factory->create(eid, access) : nullptr;
}

QXLHaulDeserializerPtr QXLHaulControlFactory::getMigrateP2VDeserializerLocal(
    const QXLAccessProviderPtr& access, const std::string& name) const {
  const auto factory = find(localDeserializers_, name);
  return factory ? factory->create(access) : nullptr;
}

QXLHaulDeserializerPtr QXLHaulControlFactory::getMigrateP2VDeserializerAgent(
    const QXLEID& eid, const QXLAccessProviderPtr& access, const std::string& name) const {
  const auto factory = find(agentDeserializers_, name);
  return factory ? factory->create(eid, access) : nullptr;
}

}  // namespace QXL
