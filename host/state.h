// The state of a container, as anyone on the host can see it.
#ifndef QX_HOST_STATE_H
#define QX_HOST_STATE_H

#include <sys/types.h>

#include <optional>
#include <string_view>

#include "host/container.h"

namespace host {

/// What says that a process is a container's init: its pid alone would not,
/// since pids are used again.
struct InitRecord {
  pid_t pid = 0;
  unsigned long long startTime = 0;  ///< field 22 of /proc/PID/stat, clock ticks since boot
};

/// Reads a record "PID STARTTIME\n", the content of the file ID.init in the run
/// directory, which exists from a container's start to its stop.
std::optional<InitRecord> parseInitRecord(std::string_view text);

/// The start time in a /proc/PID/stat text; nothing when it is malformed. The
/// command name in it may hold any character, blanks and parentheses too.
std::optional<unsigned long long> parseStartTime(std::string_view stat);

/// The pid of the container's init; nothing when the container is not running.
std::optional<pid_t> runningInit(unsigned id);

/// Whether the container's tree is mounted on its root. Throws Error.
bool isMounted(const Container& container);

/// Whether the private area is there.
bool hasPrivateArea(const Container& container);

}  // namespace host

#endif
