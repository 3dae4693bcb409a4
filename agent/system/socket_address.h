// The address of a UNIX socket.
#ifndef QX_AGENT_SYSTEM_SOCKET_ADDRESS_H
#define QX_AGENT_SYSTEM_SOCKET_ADDRESS_H

#include <sys/un.h>

#include <string>

namespace agent {

/// The address of the socket at `path`. Throws std::runtime_error, which names the path,
/// when it is empty or too long.
sockaddr_un socketAddress(const std::string& path);

}  // namespace agent

#endif
