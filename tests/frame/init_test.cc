#include "frame/init.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control/control.h"
#include "frame/deserialize_operator.h"
#include "frame/deserializer_agent.h"
#include "frame/serialize_operator.h"
#include "frame/serializer_agent.h"
#include "framework/functionality.h"
#include "migrate/deserializer_sys.h"
#include "migrate/serializer_sys.h"

using testing::ElementsAre;

namespace {

QXL::QXLHaulControlFactory& kit() {
  return QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit;
}

// Says which factory went, when it goes.
std::vector<std::string> gone;

template <class Base>
class Farewell : public Base {
 public:
  explicit Farewell(const char* name) : name_(name) {}
  ~Farewell() override { gone.push_back(name_); }

 private:
  const char* name_;
};

template <class Pointer>
class FarewellLocal : public Farewell<QXL::QXLFunctionalFactoryLocal<Pointer>> {
 public:
  using Farewell<QXL::QXLFunctionalFactoryLocal<Pointer>>::Farewell;
  Pointer create(const QXL::QXLAccessProviderPtr&) const override { return Pointer(); }
};

template <class Pointer>
class FarewellAgent : public Farewell<QXL::QXLFunctionalFactoryAgent<Pointer>> {
 public:
  using Farewell<QXL::QXLFunctionalFactoryAgent<Pointer>>::Farewell;
  Pointer create(const QXL::QXLEID&, const QXL::QXLAccessProviderPtr&) const override {
    return Pointer();
  }
};

class InitLibrary : public testing::Test {
 protected:
  ~InitLibrary() override { finiLibrary(); }
};

}  // namespace

TEST_F(InitLibrary, RegistersTheFiveFactoriesUnderTheEmptyName) {
  ASSERT_EQ(initLibrary(), 0);
  ASSERT_EQ(kit().controls_.size(), 1u);
  ASSERT_EQ(kit().localSerializers_.size(), 1u);
  ASSERT_EQ(kit().localDeserializers_.size(), 1u);
  ASSERT_EQ(kit().agentSerializers_.size(), 1u);
  ASSERT_EQ(kit().agentDeserializers_.size(), 1u);
  using namespace QXL;
  EXPECT_TRUE((boost::dynamic_pointer_cast<
               QXLFunctionalFactoryLocalImpl<QXLHaulControlPtr, QXLinMigrateP2VControl>>(
      kit().controls_[""])));
  EXPECT_TRUE((boost::dynamic_pointer_cast<
               QXLFunctionalFactoryLocalImpl<QXLHaulSerializerPtr, DRAHN2VPSMigrateSerializerSys>>(
      kit().localSerializers_[""])));
  EXPECT_TRUE(
      (boost::dynamic_pointer_cast<
          QXLFunctionalFactoryLocalImpl<QXLHaulDeserializerPtr, DRAHN2VPSMigrateDeserializerSys>>(
          kit().localDeserializers_[""])));
  EXPECT_TRUE((boost::dynamic_pointer_cast<
               QXLFunctionalFactoryAgentImpl<QXLHaulSerializerPtr, QXLinMigrateP2VSerializerAgent>>(
      kit().agentSerializers_[""])));
  EXPECT_TRUE(
      (boost::dynamic_pointer_cast<
          QXLFunctionalFactoryAgentImpl<QXLHaulDeserializerPtr, QXLinMigrateP2VDeserializerAgent>>(
          kit().agentDeserializers_[""])));
}

TEST_F(InitLibrary, FactoriesMakeObjectsOfTheirClasses) {
  ASSERT_EQ(initLibrary(), 0);
  EXPECT_TRUE(dynamic_cast<QXLinMigrateP2VControl*>(kit().getMigrateP2VControl(nullptr, "").get()));
  EXPECT_TRUE(dynamic_cast<DRAHN2VPSMigrateSerializerSys*>(
      kit().getMigrateP2VSerializerLocal(nullptr, "").get()));
  EXPECT_TRUE(dynamic_cast<DRAHN2VPSMigrateDeserializerSys*>(
      kit().getMigrateP2VDeserializerLocal(nullptr, "").get()));
  const QXL::QXLEID& eid = QXL::QXLEID::EID_INVALID;
  EXPECT_TRUE(dynamic_cast<QXLinMigrateP2VSerializerAgent*>(
      kit().getMigrateP2VSerializerAgent(eid, nullptr, "").get()));
  EXPECT_TRUE(dynamic_cast<QXLinMigrateP2VDeserializerAgent*>(
      kit().getMigrateP2VDeserializerAgent(eid, nullptr, "").get()));
}

TEST_F(InitLibrary, SecondCallKeepsTheFirstFactories) {
  ASSERT_EQ(initLibrary(), 0);
  const auto control = kit().controls_[""];
  const auto localSerializer = kit().localSerializers_[""];
  const auto localDeserializer = kit().localDeserializers_[""];
  const auto agentSerializer = kit().agentSerializers_[""];
  const auto agentDeserializer = kit().agentDeserializers_[""];
  EXPECT_EQ(initLibrary(), 0);
  EXPECT_EQ(kit().controls_[""], control);
  EXPECT_EQ(kit().localSerializers_[""], localSerializer);
  EXPECT_EQ(kit().localDeserializers_[""], localDeserializer);
  EXPECT_EQ(kit().agentSerializers_[""], agentSerializer);
  EXPECT_EQ(kit().agentDeserializers_[""], agentDeserializer);
}

TEST_F(InitLibrary, FiniErasesInItsOrder) {
  kit().agentDeserializers_[""].reset(
      new FarewellAgent<QXL::QXLHaulDeserializerPtr>("agent deserializer"));
  kit().agentSerializers_[""].reset(
      new FarewellAgent<QXL::QXLHaulSerializerPtr>("agent serializer"));
  kit().localDeserializers_[""].reset(
      new FarewellLocal<QXL::QXLHaulDeserializerPtr>("local deserializer"));
  kit().localSerializers_[""].reset(
      new FarewellLocal<QXL::QXLHaulSerializerPtr>("local serializer"));
  kit().controls_[""].reset(new FarewellLocal<QXL::QXLHaulControlPtr>("controller"));
  EXPECT_EQ(finiLibrary(), 0);
  EXPECT_THAT(gone, ElementsAre("controller", "local deserializer", "local serializer",
                                "agent serializer", "agent deserializer"));
}

TEST_F(InitLibrary, FiniLeavesOtherNamesAlone) {
  ASSERT_EQ(initLibrary(), 0);
  kit().controls_["other"] = kit().controls_[""];
  EXPECT_EQ(finiLibrary(), 0);
  EXPECT_EQ(kit().controls_.count(""), 0u);
  EXPECT_EQ(kit().controls_.erase("other"), 1u);
}

TEST_F(InitLibrary, FiniWithoutInitIsHarmless) {
  EXPECT_EQ(finiLibrary(), 0);
  EXPECT_EQ(finiLibrary(), 0);
}

TEST_F(InitLibrary, ObjectsOutliveTheRegistrations) {
  ASSERT_EQ(initLibrary(), 0);
  const auto worker = kit().getMigrateP2VSerializerLocal(nullptr, "");
  EXPECT_EQ(finiLibrary(), 0);
  worker->sync(nullptr, "");
  EXPECT_FALSE(kit().getMigrateP2VSerializerLocal(nullptr, ""));
}

TEST(OperatorFactories, HaveTheirNamesTypesAndPools) {
  const auto& serialize = factoryQXLinMigrateP2VSerializeOperator;
  const auto& deserialize = factoryQXLinMigrateP2VDeserializeOperator;
  EXPECT_EQ(serialize->getName(), "qxlinmigrate_p2v_serializer");
  EXPECT_EQ(deserialize->getName(), "qxlinmigrate_p2v_deserializer");
  EXPECT_TRUE((dynamic_cast<QXL::QXLOperatorFactory<QXLinMigrateP2VSerializeOperator, const char*,
                                                    10, 20, 4, true>*>(serialize.get())));
  EXPECT_TRUE((dynamic_cast<QXL::QXLOperatorFactory<QXLinMigrateP2VDeserializeOperator, const char*,
                                                    10, 20, 4, true>*>(deserialize.get())));
}

TEST(OperatorFactories, MakeOperatorsWithTheNameAndAnEmptyNamespace) {
  // Whether or not the library is initialised.
  finiLibrary();
  const auto serialize = factoryQXLinMigrateP2VSerializeOperator->newOperator();
  EXPECT_TRUE(dynamic_cast<QXLinMigrateP2VSerializeOperator*>(serialize.get()));
  EXPECT_EQ(serialize->getID(), "qxlinmigrate_p2v_serializer");
  EXPECT_EQ(serialize->getNamespace(), "");
  const auto deserialize = factoryQXLinMigrateP2VDeserializeOperator->newOperator();
  EXPECT_TRUE(dynamic_cast<QXLinMigrateP2VDeserializeOperator*>(deserialize.get()));
  EXPECT_EQ(deserialize->getID(), "qxlinmigrate_p2v_deserializer");
  EXPECT_EQ(deserialize->getNamespace(), "");
  EXPECT_NE(factoryQXLinMigrateP2VSerializeOperator->newOperator(), serialize);
  EXPECT_EQ(factoryQXLinMigrateP2VSerializeOperator->newAccesser(serialize)->maxQueued(), 4);
}
