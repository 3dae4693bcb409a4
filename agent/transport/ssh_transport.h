// The transport to an agent that was brought to its server over ssh.
#ifndef QX_AGENT_TRANSPORT_SSH_TRANSPORT_H
#define QX_AGENT_TRANSPORT_SSH_TRANSPORT_H

#include <memory>
#include <string>
#include <vector>

#include "agent/transport/remote_transport.h"
#include "agent/transport/ssh_session.h"

namespace agent {

class SshTransport : public RemoteTransport {
 public:
  /// The session must have been started.
  explicit SshTransport(std::unique_ptr<SshSession> session, const std::string& peer);
  /// Returns when the server is left clean, or soon if nothing is heard of it: then
  /// it cleans up by itself.
  ~SshTransport() override;

  boost::intrusive_ptr<QXL::QXLChannelPrototype> createChannel(
      const QXL::QXLChannelSettings& settings) override;
  std::string provenKey() const override { return session_->hostKey(); }

 private:
  std::unique_ptr<SshSession> session_;
};

/// Logs in, brings the agent over and greets it. Throws std::runtime_error with a
/// text for people.
boost::shared_ptr<QXL::QXLRequestTransport> connectSsh(const std::string& address,
                                                       const std::vector<std::string>& options,
                                                       QXL::QXLProgressHandlerPrototype* handler);

}  // namespace agent

#endif
