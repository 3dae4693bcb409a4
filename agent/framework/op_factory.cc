#include "framework/op_factory.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "agent/system/last_error.h"

namespace {

// Operators in use, by factory name. Never destroyed: accessers may go late.
struct Pools {
  std::mutex mutex;
  std::condition_variable freed;
  std::map<std::string, int> inUse;
};

Pools& pools() {
  static Pools* const all = new Pools();
  return *all;
}

}  // namespace

namespace QXL {

QXLOpFactory::QXLOpFactory(const std::string& name, int flags) : name_(name), flags_(flags) {}
QXLOpFactory::~QXLOpFactory() = default;

QXLAccesserPoolPrototype::QXLAccesserPoolPrototype(
    const boost::intrusive_ptr<QXLOperatorPrototype>& op, QXLOpFactory* factory, int waitSeconds,
    int maxOperators, int maxQueued)
    : operator_(op),
      pool_(factory->getName()),
      waitSeconds_(waitSeconds),
      maxOperators_(maxOperators),
      maxQueued_(maxQueued) {}

QXLAccesserPoolPrototype::~QXLAccesserPoolPrototype() {
  if (!acquired_) return;
  std::lock_guard lock(pools().mutex);
  --pools().inUse[pool_];
  pools().freed.notify_all();
}

int QXLAccesserPoolPrototype::acquire() {
  std::unique_lock lock(pools().mutex);
  int& inUse = pools().inUse[pool_];
  const bool free = pools().freed.wait_for(lock, std::chrono::seconds(waitSeconds_),
                                           [&] { return inUse < maxOperators_; });
  if (!free) {
    return agent::fail("all " + std::to_string(maxOperators_) + " places for '" + pool_ +
                       "' are taken");
  }
  ++inUse;
  acquired_ = true;
  return 0;
}

boost::intrusive_ptr<QXLOperatorPrototype> QXLAccesserPoolPrototype::getOperator() const {
  return operator_;
}

int QXLAccesserPoolPrototype::maxQueued() const { return maxQueued_; }

}  // namespace QXL
