// How long another machine may take for a request, and how much it may answer. An agent that
// beats but never answers must not hold a migration for ever.
#ifndef QX_AGENT_REQUEST_LIMITS_H
#define QX_AGENT_REQUEST_LIMITS_H

#include <chrono>

#include "agent/system/cancel.h"
#include "agent/wire/frames.h"

namespace agent {

struct RequestLimits {
  /// Longer than any honest agent takes; 0 for no limit.
  std::chrono::milliseconds longest{0};
  /// The longest frame that may come meanwhile.
  size_t frameBytes = kUsualFrameBytes;
  /// Once abandoned, the answer is not waited for; may be null.
  CancelToken* abandon = nullptr;
};

}  // namespace agent

#endif
