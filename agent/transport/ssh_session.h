// One ssh client process that holds the connection to a server.
#ifndef QX_AGENT_TRANSPORT_SSH_SESSION_H
#define QX_AGENT_TRANSPORT_SSH_SESSION_H

#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/system/cancel.h"
#include "agent/system/child.h"
#include "agent/transport/bundle.h"
#include "agent/transport/ssh_address.h"
#include "agent/wire/channels.h"
#include "framework/request.h"

namespace agent {

// Logs in once (the client's configuration, keys, agent, prompts and host-key
// checking are the user's own), brings the agent over and starts it. Data
// channels are further sessions on the same connection.
class SshSession {
 public:
  // options: values for ssh's -o, before everything else.
  SshSession(const SshAddress& address, std::vector<std::string> options);
  // Ends the agent if it still runs, waits until it has cleaned up behind itself
  // (up to 60 seconds), and ends every ssh process.
  ~SshSession();

  // Nothing comes from the server any more: the destructor waits 5 seconds only.
  void abandon();

  // Throws std::runtime_error with a text for people. The handler (may be null)
  // hears of the steps; `cancel` (may be null) ends the waiting.
  void start(const Bundle& bundle, QXL::QXLProgressHandlerPrototype* handler,
             const CancelToken* cancel);

  // The agent's streams, after start.
  host::Fd takeInput() { return std::move(output_); }
  host::Fd takeOutput() { return std::move(input_); }

  /// Fingerprint of the server's host key, after start; empty when the ssh client
  /// cannot tell it: older than 8.5, or told to find keys by a command of the user's.
  std::string hostKey() const;

  // Starts a session that joins the agent's channel `token` to two new pipes, and
  // waits until login scripts of the server have printed what they print there.
  // Null with QXL::getErrorMessage() set when that fails or is cancelled. cancel may
  // be null.
  boost::intrusive_ptr<LocalChannelEnd> openChannel(const std::string& token, int pipeBytes,
                                                    const CancelToken* cancel);

 private:
  std::vector<std::string> command(bool master, const std::string& remote) const;
  void completeOptions();
  void watchHostKey(const std::string& configuration);
  void limitWaiting(const std::string& configuration);
  std::string readLine(const CancelToken* cancel);
  void sendBundle(const Bundle& bundle, const CancelToken* cancel);
  [[noreturn]] void giveUp(const CancelToken* cancel);
  bool drainErrors();
  void startErrorThread();

  SshAddress address_;
  std::vector<std::string> options_;
  std::string program_;
  std::string controlDir_;
  host::Fd input_;   // to the server
  host::Fd output_;  // from the server
  host::Fd errors_, errorsWrite_;
  host::Fd stopErrors_;
  std::chrono::seconds leavePatience_{60};
  std::string errorText_;
  std::string unread_;
  std::thread errorThread_;
  std::list<std::unique_ptr<Child>> channels_;
  Child master_;
};

}  // namespace agent

#endif
