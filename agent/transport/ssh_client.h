// How the ssh client is called for one server.
#ifndef QX_AGENT_TRANSPORT_SSH_CLIENT_H
#define QX_AGENT_TRANSPORT_SSH_CLIENT_H

#include <string>
#include <vector>

#include "agent/transport/ssh_address.h"

namespace agent {

/// Owns the folder in which the sessions of one connection find each other. What the
/// user's own configuration says stands: this only adds where it says nothing.
class SshClient {
 public:
  /// options: values for ssh's -o, before everything else. Throws std::runtime_error when
  /// this machine has no ssh client.
  SshClient(const SshAddress& address, std::vector<std::string> options);
  ~SshClient();
  SshClient(const SshClient&) = delete;
  SshClient& operator=(const SshClient&) = delete;

  const std::string& program() const { return program_; }
  std::string target() const { return address_.target(); }

  /// Asks the client for its configuration, and adds to the options what it does not
  /// decide: limits of waiting, the fingerprint of the host key, a quick cipher.
  void completeOptions();

  /// The command line that runs `remote` on the server: of the connection's master, or of
  /// a further session.
  std::vector<std::string> command(bool master, const std::string& remote) const;

  /// Fingerprint of the server's host key, once the master has logged in; empty when the
  /// client cannot tell it: older than 8.5, or told to find keys by a command of the
  /// user's.
  std::string hostKey() const;

 private:
  void limitWaiting(const std::string& configuration);
  void watchHostKey(const std::string& configuration);

  SshAddress address_;
  std::vector<std::string> options_;
  std::string program_;
  std::string controlDir_;
};

}  // namespace agent

#endif
