// The transport to the agent of this process: the same frames as between processes,
// without a wire.
#ifndef QX_AGENT_TRANSPORT_LOCAL_TRANSPORT_H
#define QX_AGENT_TRANSPORT_LOCAL_TRANSPORT_H

#include "agent/transport/caller.h"
#include "agent/transport/transport.h"
#include "agent/wire/dispatcher.h"

namespace agent {

class LocalTransport : public QXL::QXLRequestTransport {
 public:
  LocalTransport();

  int call(const Request& request, nlohmann::json& answer,
           QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel) override;
  boost::intrusive_ptr<QXL::QXLChannelPrototype> createChannel(
      const QXL::QXLChannelSettings& settings) override;
  std::string handOver(const boost::intrusive_ptr<QXL::QXLChannelEndPrototype>& end) override;
  QXL::QXLEID eid() const override;

  /// As the loss of a connection: calls end with error 410, sessions are ended.
  void disconnect();

 private:
  class ToDispatcher : public FrameSink {
   public:
    explicit ToDispatcher(LocalTransport& owner) : owner_(owner) {}
    bool send(const nlohmann::json& frame, const std::vector<int>& fds) override;

   private:
    LocalTransport& owner_;
    std::mutex mutex_;
  };
  class ToCaller : public FrameSink {
   public:
    explicit ToCaller(LocalTransport& owner) : owner_(owner) {}
    bool send(const nlohmann::json& frame, const std::vector<int>& fds) override;

   private:
    LocalTransport& owner_;
  };

  ToDispatcher toDispatcher_;
  ToCaller toCaller_;
  Caller caller_;
  Dispatcher dispatcher_;  ///< last: its sessions end while the rest is there
};

}  // namespace agent

#endif
