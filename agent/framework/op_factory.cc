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

QXLOpFactory::QXLOpFactory(const std::string& name, int flags) : m_name(name), m_flags(flags) {}
QXLOpFactory::~QXLOpFactory() = default;

QXLAccesserPoolPrototype::QXLAccesserPoolPrototype(
    const boost::intrusive_ptr<QXLOperatorPrototype>& op, QXLOpFactory* factory, int waitSeconds,
    int maxOperators, int maxQueued)
    : m_operator(op),
      m_pool(factory->getName()),
      m_waitSeconds(waitSeconds),
      m_maxOperators(maxOperators),
      m_maxQueued(maxQueued) {}

QXLAccesserPoolPrototype::~QXLAccesserPoolPrototype() {
  if (!m_acquired) return;
  std::lock_guard lock(pools().mutex);
  --pools().inUse[m_pool];
  pools().freed.notify_all();
}

int QXLAccesserPoolPrototype::acquire() {
  std::unique_lock lock(pools().mutex);
  int& inUse = pools().inUse[m_pool];
  const bool free = pools().freed.wait_for(lock, std::chrono::seconds(m_waitSeconds),
                                           [&] { return inUse < m_maxOperators; });
  if (!free) {
    return agent::fail("all " + std::to_string(m_maxOperators) + " places for '" + m_pool +
                       "' are taken");
  }
  ++inUse;
  m_acquired = true;
  return 0;
}

boost::intrusive_ptr<QXLOperatorPrototype> QXLAccesserPoolPrototype::getOperator() const {
  return m_operator;
}

int QXLAccesserPoolPrototype::maxQueued() const { return m_maxQueued; }

}  // namespace QXL
