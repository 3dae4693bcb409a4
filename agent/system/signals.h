// Signals that end a program.
#ifndef QX_AGENT_SYSTEM_SIGNALS_H
#define QX_AGENT_SYSTEM_SIGNALS_H

namespace agent {

/// From now on SIGINT, SIGTERM and SIGHUP make the returned descriptor readable
/// instead of ending the process, and SIGPIPE is ignored. Programs that the process
/// starts get the signals' usual effects. Throws std::system_error.
int catchStopSignals();

}  // namespace agent

#endif
