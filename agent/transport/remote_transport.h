// The transport to the agent at the other end of a connection.
#ifndef QX_AGENT_TRANSPORT_REMOTE_TRANSPORT_H
#define QX_AGENT_TRANSPORT_REMOTE_TRANSPORT_H

#include <memory>

#include "agent/transport/caller.h"
#include "agent/transport/transport.h"
#include "agent/wire/connection.h"

namespace agent {

/// Over a UNIX socket. When the connection is lost, the request that was being
/// served by the thread that made this transport is cancelled with the reason: a
/// migration whose server is gone must not go on at the other end.
class RemoteTransport : public QXL::QXLRequestTransport {
 public:
  /// Greets the agent. Throws std::runtime_error when it does not greet back
  /// within 30 seconds or speaks another version.
  RemoteTransport(host::Fd input, host::Fd output, const std::string& peer,
                  const HeartbeatTimes& times = HeartbeatTimes());
  ~RemoteTransport() override;

  int call(const Request& request, nlohmann::json& answer,
           QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel) override;
  boost::intrusive_ptr<QXL::QXLChannelPrototype> createChannel(
      const QXL::QXLChannelSettings& settings) override;
  std::string handOver(const boost::intrusive_ptr<QXL::QXLChannelEndPrototype>& end) override;
  QXL::QXLEID eid() const override { return eid_; }

 protected:
  /// Leaves; calls end with error 410. Returns when the connection's thread has.
  void disconnect();
  bool peerWasSilent() const { return connection_.wasSilent(); }

 private:
  std::string peer_;
  QXL::QXLEID eid_;
  std::shared_ptr<CancelToken> cancelOnLoss_;
  Connection connection_;
  Caller caller_;
};

}  // namespace agent

#endif
