// The state of the request that a thread serves.
#ifndef QX_AGENT_WIRE_REQUEST_CONTEXT_H
#define QX_AGENT_WIRE_REQUEST_CONTEXT_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <functional>
#include <memory>
#include <string>

#include "agent/system/cancel.h"
#include "framework/access.h"
#include "framework/request.h"

namespace agent {

class ChannelTable;

/// A context that remembers the last error and passes progress to a function.
class RequestContext : public QXL::QXLRequestContextPrototype {
 public:
  typedef std::function<void(const QXL::QXLRequestProgressData&)> ProgressSink;
  explicit RequestContext(ProgressSink sink = nullptr) : sink_(std::move(sink)) {}

  void setLastError(int code, const std::string& text) override;
  int getLastErrorCode() const override { return code_; }
  std::string getLastErrorText() const override { return text_; }
  void reportProgress(const QXL::QXLRequestProgressData& data) override;

 private:
  int code_ = 0;
  std::string text_;
  ProgressSink sink_;
};

/// What the calling thread serves at the moment. Set for the length of one
/// request; every field may be null or empty outside of one.
struct CurrentRequest {
  QXL::QXLClientContext client;
  std::shared_ptr<CancelToken> cancel;
  ChannelTable* channels = nullptr;
  boost::intrusive_ptr<QXL::QXLMessageIterator> answer;

  /// The calling thread's; null when it serves none.
  static const CurrentRequest* get();
};

/// Makes a request the calling thread's current one, context included.
class CurrentRequestScope {
 public:
  CurrentRequestScope(const CurrentRequest& request,
                      const boost::intrusive_ptr<QXL::QXLRequestContextPrototype>& context);
  ~CurrentRequestScope();
  CurrentRequestScope(const CurrentRequestScope&) = delete;
  CurrentRequestScope& operator=(const CurrentRequestScope&) = delete;

 private:
  QXL::QXLRequestContextScope contextScope_;
  const CurrentRequest* previous_;
};

}  // namespace agent

#endif
