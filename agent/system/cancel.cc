#include "agent/system/cancel.h"

#include "agent/system/event.h"

namespace agent {

CancelToken::CancelToken() : event_(newEvent()), abandonEvent_(newEvent()) {}

void CancelToken::abandon() {
  abandoned_ = true;
  raiseEvent(abandonEvent_);
}

void CancelToken::cancel(int code, const std::string& argument) {
  {
    std::lock_guard lock(mutex_);
    if (code_ != 0) return;
    code_ = code;
    argument_ = argument;
  }
  raiseEvent(event_);
}

int CancelToken::code() const {
  std::lock_guard lock(mutex_);
  return code_;
}

std::string CancelToken::argument() const {
  std::lock_guard lock(mutex_);
  return argument_;
}

}  // namespace agent
