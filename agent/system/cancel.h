// Cancelling what runs.
#ifndef QX_AGENT_SYSTEM_CANCEL_H
#define QX_AGENT_SYSTEM_CANCEL_H

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

#include "host/fd.h"

namespace agent {

/// Error codes of the framework's table that a cancel is told with.
inline constexpr int kCancelledByUser = 499;
inline constexpr int kConnectionLost = 410;
/// An agent that did not answer in time.
inline constexpr int kAnswerTimedOut = 408;

/// A flag that can be waited for. Any thread may cancel; it stays cancelled, and
/// the first reason stands.
class CancelToken {
 public:
  CancelToken();
  void cancel(int code = kCancelledByUser, const std::string& argument = "");
  bool isCancelled() const { return code() != 0; }
  /// Why: an error code (0 when not cancelled) and its argument.
  int code() const;
  std::string argument() const;
  /// Readable once cancelled; for poll.
  int fd() const { return event_.get(); }

  /// How long programs that run may go on after a cancel, which starts no others then:
  /// for those that leave a worse state when they are ended half-way. Any thread.
  void grantPrograms(std::chrono::seconds time) {
    programSeconds_ = static_cast<int>(time.count());
  }
  std::chrono::seconds grantedToPrograms() const { return std::chrono::seconds(programSeconds_); }

  /// Beyond a cancel: what another machine still does to end its part is not waited
  /// for either. Any thread.
  void abandon();
  bool isAbandoned() const { return abandoned_; }
  /// Readable once abandoned; for poll.
  int abandonFd() const { return abandonEvent_.get(); }

 private:
  mutable std::mutex mutex_;
  int code_ = 0;
  std::string argument_;
  host::Fd event_;
  std::atomic<int> programSeconds_{0};
  std::atomic<bool> abandoned_{false};
  host::Fd abandonEvent_;
};

}  // namespace agent

#endif
