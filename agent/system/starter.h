// Processes whose end raises no signal in this one.
#ifndef QX_AGENT_SYSTEM_STARTER_H
#define QX_AGENT_SYSTEM_STARTER_H

#include <sys/types.h>

namespace agent {

/// A program and the small process between it and this one, which waits for it.
struct Started {
  pid_t starter = 0;
  pid_t program = 0;
  /// Readable once the program has ended: its wait status then, an int; nothing when
  /// the starter was killed. The program's process id stays taken until it is closed.
  int status = -1;
};

/// Runs `program` with `context` and the starter's process id in a new process, which
/// must never return from it and may make async-signal-safe calls only. It has all
/// signals blocked.
///
/// The plug-in takes any SIGCHLD for the end of the program that it waits for. A child
/// made without a signal would not do: the kernel gives every process that executes a
/// program the usual one. So the child executes nothing and has the program for a child
/// of its own.
///
/// dieWithParent  kill the starter (SIGKILL) when the calling thread ends
///
/// Returns 0 or an errno value; no process is left then.
int startByStarter(void (*program)(const void* context, pid_t starter), const void* context,
                   bool dieWithParent, Started& started);

/// Ends a starter whose status was read or is no longer wanted: closes the descriptor and
/// reaps it. Waits for the end of the program.
void endStarter(Started& started);

}  // namespace agent

#endif
