// The state of a container, as anyone on the host can see it.
#ifndef QX_HOST_STATE_H
#define QX_HOST_STATE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "host/container.h"

namespace host {

/// What says that a process is a container's init, or LXC's monitor of it: its pid
/// alone would not, since pids are used again.
struct ProcessRecord {
  pid_t pid = 0;
  unsigned long long startTime = 0;  ///< field 22 of /proc/PID/stat, clock ticks since boot
};

/// Reads a record "PID STARTTIME\n", the content of the files ID.init and ID.monitor
/// in the run directory.
std::optional<ProcessRecord> parseProcessRecord(std::string_view text);

inline constexpr char kInitRecord[] = "init";
inline constexpr char kMonitorRecord[] = "monitor";

/// The file of such a record.
std::string runRecordPath(unsigned id, const char* kind);

/// The start time in a /proc/PID/stat text; nothing when it is malformed. The
/// command name in it may hold any character, blanks and parentheses too.
std::optional<unsigned long long> parseStartTime(std::string_view stat);

/// The pid of the parent in such a text.
std::optional<pid_t> parseParent(std::string_view stat);

/// The pid of the container's init; nothing while it has none.
std::optional<pid_t> runningInit(unsigned id);

/// The pid of LXC's monitor of the container. It outlives the init: it puts the
/// container away, or starts it again when the guest has rebooted.
std::optional<pid_t> runningMonitor(unsigned id);

/// Whether the container has an init or a monitor. Without both nothing of it is
/// left, and nothing will come of itself.
bool isRunning(unsigned id);

/// Whether the container's tree is mounted on its root. Throws Error.
bool isMounted(const Container& container);

/// Whether the private area is there.
bool hasPrivateArea(const Container& container);

}  // namespace host

#endif
