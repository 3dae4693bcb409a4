// One record of a configuration.
#ifndef QX_AGENT_PLAN_FIND_RECORD_H
#define QX_AGENT_PLAN_FIND_RECORD_H

#include <set>
#include <string>

#include "framework/env_config.h"

namespace agent {

/// The record of that name; null when there is none.
inline const QXL::QXLQoS* findRecord(const std::set<QXL::QXLQoS>& records,
                                     const std::string& name) {
  QXL::QXLQoS key;
  key.name = name;
  const auto found = records.find(key);
  return found == records.end() ? nullptr : &*found;
}

}  // namespace agent

#endif
