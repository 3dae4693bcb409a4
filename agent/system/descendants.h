// The programs that this process or one of its threads has started.
#ifndef QX_AGENT_SYSTEM_DESCENDANTS_H
#define QX_AGENT_SYSTEM_DESCENDANTS_H

#include <sys/types.h>

#include <vector>

namespace agent {

/// Processes that a thread of this process has started and their descendants,
/// from /proc/PID/task/TID/children (kernel 3.5 with CONFIG_PROC_CHILDREN; where
/// it is missing the result is empty). Those that go at the time may be missed.
std::vector<pid_t> descendantsOfThread(pid_t thread);

/// The same for all threads of this process.
std::vector<pid_t> descendants();

}  // namespace agent

#endif
