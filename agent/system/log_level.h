// Which log lines are shown.
#ifndef QX_AGENT_SYSTEM_LOG_LEVEL_H
#define QX_AGENT_SYSTEM_LOG_LEVEL_H

namespace agent {

/// Lines up to this level go to standard error; at first errors and warnings (1).
void setLogLevel(int level);

}  // namespace agent

#endif
