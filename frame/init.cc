#include "frame/init.h"

#include <utility>

#include "frame/deserialize_operator.h"
#include "frame/deserializer_agent.h"
#include "frame/factories.h"
#include "frame/plugin.h"
#include "frame/serialize_operator.h"
#include "frame/serializer_agent.h"
#include "framework/functionality.h"

namespace {

// The product that the plug-in belongs to. No code reads it; it is there for
// whoever looks into the memory of an agent.
const std::string kProduct("corvantix");

QXL::QXLHaulControlFactory& kit() {
  return QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit;
}

typedef QXL::QXLFunctionalFactoryAgentImpl<QXL::QXLHaulSerializerPtr,
                                           QXLinMigrateP2VSerializerAgent>
    AgentSerializerFactory;
typedef QXL::QXLFunctionalFactoryAgentImpl<QXL::QXLHaulDeserializerPtr,
                                           QXLinMigrateP2VDeserializerAgent>
    AgentDeserializerFactory;

// A map insert leaves an entry of the same name alone, and the new factory goes.
template <class Map>
void insertUnique(Map& map, const typename Map::mapped_type& factory) {
  map.insert(std::make_pair(P2V::kImplementation, factory));
}

}  // namespace

extern "C" {

// In this order: objects of one file are built in the order of their definitions.
boost::intrusive_ptr<QXL::QXLOpFactory> factoryQXLinMigrateP2VSerializeOperator =
    QXL::newOperatorFactory<QXLinMigrateP2VSerializeOperator, 10, 20, 4, true>(
        P2V::kSerializeOperatorName, "", 0);
boost::intrusive_ptr<QXL::QXLOpFactory> factoryQXLinMigrateP2VDeserializeOperator =
    QXL::newOperatorFactory<QXLinMigrateP2VDeserializeOperator, 10, 20, 4, true>(
        P2V::kDeserializeOperatorName, "", 0);

int initLibrary() {
  typedef QXL::QXLHaulControlFactory Kit;
  insertUnique(kit().controls_, P2V::newControlFactory());
  insertUnique(kit().localDeserializers_, P2V::newLocalDeserializerFactory());
  insertUnique(kit().localSerializers_, P2V::newLocalSerializerFactory());
  insertUnique(kit().agentDeserializers_,
               Kit::AgentDeserializers::mapped_type(new AgentDeserializerFactory));
  insertUnique(kit().agentSerializers_,
               Kit::AgentSerializers::mapped_type(new AgentSerializerFactory));
  return 0;
}

int finiLibrary() {
  kit().controls_.erase(P2V::kImplementation);
  kit().localDeserializers_.erase(P2V::kImplementation);
  kit().localSerializers_.erase(P2V::kImplementation);
  kit().agentSerializers_.erase(P2V::kImplementation);
  kit().agentDeserializers_.erase(P2V::kImplementation);
  return 0;
}
}
