#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "framework/errors.h"
#include "framework/op_factory.h"

namespace {

using namespace std::chrono_literals;

class Idle : public QXL::QXLOperatorPrototype {
 public:
  void process(const std::string&, const boost::intrusive_ptr<QXL::QXLMessageIterator>&,
               const boost::intrusive_ptr<QXL::QXLMessageIterator>&) override {}
};

TEST(OperatorFactory, NamesItsOperators) {
  const auto factory = QXL::newOperatorFactory<Idle, 10, 20, 4, true>("idle_op", "space", 0);
  EXPECT_EQ(factory->getName(), "idle_op");
  const auto op = factory->newOperator();
  EXPECT_EQ(op->getID(), "idle_op");
  EXPECT_EQ(op->getNamespace(), "space");
  const auto accesser = factory->newAccesser(op);
  EXPECT_EQ(accesser->getOperator(), op);
  EXPECT_EQ(accesser->maxQueued(), 4);
}

TEST(OperatorPool, AFullPoolRefusesAfterItsWait) {
  const auto factory = QXL::newOperatorFactory<Idle, 0, 2, 4, true>("full_op", "", 0);
  const auto newAccesser = [&]() { return factory->newAccesser(factory->newOperator()); };
  auto first = newAccesser();
  const auto second = newAccesser();
  const auto third = newAccesser();
  EXPECT_EQ(first->acquire(), 0);
  EXPECT_EQ(second->acquire(), 0);
  EXPECT_NE(third->acquire(), 0);
  EXPECT_EQ(QXL::getErrorMessage(), "all 2 places for 'full_op' are taken");
  first.reset();
  EXPECT_EQ(third->acquire(), 0);
}

TEST(OperatorPool, AWaiterGetsThePlaceThatBecomesFree) {
  const auto factory = QXL::newOperatorFactory<Idle, 20, 1, 4, true>("wait_op", "", 0);
  auto first = factory->newAccesser(factory->newOperator());
  const auto second = factory->newAccesser(factory->newOperator());
  ASSERT_EQ(first->acquire(), 0);
  std::thread releaser([&]() {
    std::this_thread::sleep_for(100ms);
    first.reset();
  });
  EXPECT_EQ(second->acquire(), 0);
  releaser.join();
}

}  // namespace
