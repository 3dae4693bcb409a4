// Cancelling what runs.
#ifndef QX_AGENT_SYSTEM_CANCEL_H
#define QX_AGENT_SYSTEM_CANCEL_H

#include <mutex>
#include <string>

#include "agent/system/unique_fd.h"

namespace agent {

// Error codes of the framework's table that a cancel is told with.
inline constexpr int cancelledByUser = 499;
inline constexpr int connectionLost = 410;

// A flag that can be waited for. Any thread may cancel; it stays cancelled, and
// the first reason stands.
class CancelToken {
 public:
  CancelToken();
  void cancel(int code = cancelledByUser, const std::string& argument = "");
  bool isCancelled() const { return code() != 0; }
  // Why: an error code (0 when not cancelled) and its argument.
  int code() const;
  std::string argument() const;
  // Readable once cancelled; for poll.
  int fd() const { return event_.get(); }

 private:
  mutable std::mutex mutex_;
  int code_ = 0;
  std::string argument_;
  UniqueFd event_;
};

}  // namespace agent

#endif
