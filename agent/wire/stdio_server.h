// The agent of a server that was brought there over ssh.
#ifndef QX_AGENT_WIRE_STDIO_SERVER_H
#define QX_AGENT_WIRE_STDIO_SERVER_H

#include <string>

namespace agent {

/// Serves the peer on standard input and output until it leaves or stopFd becomes
/// readable. The caller of the ssh connection has the rights of the account that
/// the agent runs as. Data channels come in over the socket channelSocketPath().
void serveStdio(int stopFd);

/// "channel.sock" in the directory that QXA_TMPDIR names.
std::string channelSocketPath();

/// Gives this process's standard input and output to the agent that listens there
/// and waits until it has done with them. Returns an exit status; says what went
/// wrong on standard error.
int offerChannel(const std::string& token);

}  // namespace agent

#endif
