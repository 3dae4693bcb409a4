// A descriptor that one thread makes readable to wake another.
#ifndef QX_AGENT_SYSTEM_EVENT_H
#define QX_AGENT_SYSTEM_EVENT_H

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "agent/system/unique_fd.h"

namespace agent {

inline UniqueFd newEvent() {
  UniqueFd event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!event) throw std::system_error(errno, std::generic_category(), "eventfd");
  return event;
}

inline void raiseEvent(const UniqueFd& event) {
  const uint64_t one = 1;
  // Fails only when the counter is full, and then it is readable already.
  [[maybe_unused]] const ssize_t written = write(event.get(), &one, sizeof one);
}

inline void clearEvent(const UniqueFd& event) {
  uint64_t count;
  // Fails only when nobody has raised it.
  [[maybe_unused]] const ssize_t got = read(event.get(), &count, sizeof count);
}

}  // namespace agent

#endif
