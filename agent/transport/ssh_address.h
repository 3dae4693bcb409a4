// Addresses of servers that are reached over ssh.
#ifndef QX_AGENT_TRANSPORT_SSH_ADDRESS_H
#define QX_AGENT_TRANSPORT_SSH_ADDRESS_H

#include <string>
#include <vector>

namespace agent {

struct SshAddress {
  std::string user;  ///< empty: what the user's ssh configuration says
  std::string host;
  int port = 0;  ///< 0: what the user's ssh configuration says

  /// For ssh's command line: "user@host" or "host".
  std::string target() const { return user.empty() ? host : user + "@" + host; }
};

/// Reads "[user@]host[:port]" or "ssh://[user@]host[:port]"; an IPv6 address with a
/// port stands in brackets. Throws std::runtime_error, which names the value, for other
/// text.
SshAddress parseSshAddress(const std::string& text);

}  // namespace agent

#endif
