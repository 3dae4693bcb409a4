// The operators that plug-ins have brought.
#ifndef QX_AGENT_WIRE_OPERATOR_REGISTRY_H
#define QX_AGENT_WIRE_OPERATOR_REGISTRY_H

#include <map>
#include <mutex>
#include <string>

#include "framework/op_factory.h"

namespace agent {

class OperatorRegistry {
 public:
  static OperatorRegistry& instance() {
    static OperatorRegistry registry;
    return registry;
  }

  void add(const boost::intrusive_ptr<QXL::QXLOpFactory>& factory) {
    std::lock_guard lock(mutex_);
    factories_[factory->getName()] = factory;
  }
  void remove(const std::string& name) {
    std::lock_guard lock(mutex_);
    factories_.erase(name);
  }
  /// Null when there is none of that name.
  boost::intrusive_ptr<QXL::QXLOpFactory> find(const std::string& name) const {
    std::lock_guard lock(mutex_);
    const auto found = factories_.find(name);
    return found == factories_.end() ? nullptr : found->second;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, boost::intrusive_ptr<QXL::QXLOpFactory>> factories_;
};

}  // namespace agent

#endif
