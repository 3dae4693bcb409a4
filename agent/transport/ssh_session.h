// The connection to a server by the ssh client.
#ifndef QX_AGENT_TRANSPORT_SSH_SESSION_H
#define QX_AGENT_TRANSPORT_SSH_SESSION_H

#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/system/cancel.h"
#include "agent/system/child.h"
#include "agent/transport/bundle.h"
#include "agent/transport/ssh_client.h"
#include "agent/transport/ssh_login.h"
#include "agent/wire/channels.h"
#include "framework/request.h"

namespace agent {

/// Logs in once (the client's configuration, keys, agent, prompts and host-key
/// checking are the user's own), brings the agent over and starts it. Data
/// channels are further sessions on the same connection.
class SshSession {
 public:
  /// options: values for ssh's -o, before everything else.
  SshSession(const SshAddress& address, std::vector<std::string> options)
      : client_(address, std::move(options)) {}
  /// Ends the agent if it still runs, waits until it has cleaned up behind itself
  /// (up to 60 seconds), and ends every ssh process.
  ~SshSession();

  /// Nothing comes from the server any more: the destructor waits 5 seconds only.
  void abandon() { login_.abandon(); }

  /// Throws std::runtime_error with a text for people. The handler (may be null)
  /// hears of the steps; `cancel` (may be null) ends the waiting.
  void start(const Bundle& bundle, QXL::QXLProgressHandlerPrototype* handler,
             const CancelToken* cancel);

  /// The agent's streams, after start.
  host::Fd takeInput() { return login_.takeInput(); }
  host::Fd takeOutput() { return login_.takeOutput(); }

  /// See SshClient::hostKey; after start.
  std::string hostKey() const { return client_.hostKey(); }

  /// Starts a session that joins the agent's channel `token` to two new pipes, and
  /// waits until login scripts of the server have printed what they print there.
  /// Null with QXL::getErrorMessage() set when that fails or is cancelled. cancel may
  /// be null.
  boost::intrusive_ptr<LocalChannelEnd> openChannel(const std::string& token, int pipeBytes,
                                                    const CancelToken* cancel);

 private:
  void showErrors();

  SshClient client_;
  SshLogin login_;
  host::Fd stopErrors_;
  std::thread errorThread_;
  std::list<std::unique_ptr<Child>> channels_;
};

}  // namespace agent

#endif
