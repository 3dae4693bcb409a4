// The asking end of a connection: requests out, progress and answers in.
#ifndef QX_AGENT_TRANSPORT_CALLER_H
#define QX_AGENT_TRANSPORT_CALLER_H

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "agent/system/cancel.h"
#include "agent/transport/request_limits.h"
#include "agent/transport/transport.h"
#include "agent/wire/frames.h"

namespace agent {

/// Several threads may call at one time.
class Caller {
 public:
  explicit Caller(FrameSink& sink) : sink_(sink) {}

  /// See QXLRequestTransport::call. A request that takes longer than its limits allow is
  /// cancelled like one that was cancelled by the user, and ends with error 408; one that
  /// is abandoned ends at once, with error 499.
  int call(const Request& request, nlohmann::json& answer,
           QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel,
           const RequestLimits& limits = {});

  /// A "progress" or "answer" frame came in. Throws std::runtime_error when it is
  /// malformed.
  void onFrame(const nlohmann::json& frame);

  /// The connection is gone: every call, also a later one, ends with error 410.
  void onLost(const std::string& reason);

 private:
  struct Pending;
  std::shared_ptr<Pending> find(long long id);

  FrameSink& sink_;
  std::mutex mutex_;
  long long nextId_ = 1;
  bool lost_ = false;
  std::string lostReason_;
  std::map<long long, std::shared_ptr<Pending>> pending_;
};

}  // namespace agent

#endif
