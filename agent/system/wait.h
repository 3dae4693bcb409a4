// Waiting for a descriptor.
#ifndef QX_AGENT_SYSTEM_WAIT_H
#define QX_AGENT_SYSTEM_WAIT_H

#include <chrono>
#include <initializer_list>

namespace agent {

/// For as long as it takes.
inline constexpr std::chrono::milliseconds kNoTimeout{-1};

/// Waits until `fd` is ready for `events` (of poll(2)) or has failed, one of `others` has
/// something to read, the time is over or a signal came. True when it is `fd`. Descriptors
/// of -1 are never ready.
bool waitFor(int fd, short events, std::chrono::milliseconds timeout,
             std::initializer_list<int> others = {});

}  // namespace agent

#endif
