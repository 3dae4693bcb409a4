// What is kept of a container while it runs: ID.init and ID.monitor, by which anyone
// finds its processes (state.h), and LXC's own directory.
#ifndef QX_NODE_RUN_RECORD_H
#define QX_NODE_RUN_RECORD_H

#include <sys/types.h>

#include <string>

namespace node {

/// The name under which LXC knows the container: its hooks are called with it.
std::string lxcName(unsigned id);

/// Where LXC keeps what belongs to running containers, each in a directory that is
/// called by its lxcName.
std::string lxcDirectory();

/// A file there.
std::string lxcPlace(unsigned id, const char* name);
/// System calls that a container whose root is the host's must not use.
inline constexpr char kSeccompFile[] = "seccomp";
/// Logs of the last start: LXC's own, what was written to the console, and how LXC calls
/// one of these that has become too large.
inline constexpr char kLxcLog[] = "log";
inline constexpr char kConsoleLog[] = "console";
inline constexpr char kOlder[] = ".1";

/// Notes the container's init and LXC's monitor, which is the parent of the init.
/// Throws Error.
void recordRun(unsigned id, pid_t init);

/// The init has ended.
void forgetInit(unsigned id);

/// The container is stopped: nothing is kept of its run but the logs.
void forgetRun(unsigned id);

/// The logs go, too.
void forgetLogs(unsigned id);

}  // namespace node

#endif
