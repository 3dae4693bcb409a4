// The transport of requests to an agent, in this process or another.
#ifndef QX_AGENT_TRANSPORT_TRANSPORT_H
#define QX_AGENT_TRANSPORT_TRANSPORT_H

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/system/cancel.h"
#include "framework/access.h"
#include "framework/channel.h"

namespace agent {

struct Request;

}  // namespace agent

namespace QXL {

class QXLRequestTransport {
 public:
  virtual ~QXLRequestTransport() = default;

  /// Sends the request and waits for its answer, whose body replaces `answer`.
  /// Progress goes to the handler (may be null) on the calling thread. Once
  /// `cancel` (may be null) is cancelled, the request is cancelled at the agent
  /// and its answer is still waited for, up to 30 seconds. Returns 0 when an answer
  /// came, whatever it says; an error code with the reason in
  /// QXL::getErrorMessage() when none did.
  virtual int call(const agent::Request& request, nlohmann::json& answer,
                   QXLProgressHandlerPrototype* handler, agent::CancelToken* cancel) = 0;

  /// Makes the agent expect a channel: the result's serializer end is the agent's,
  /// the other is here. Null with QXL::getErrorMessage() set when that fails.
  virtual boost::intrusive_ptr<QXLChannelPrototype> createChannel(
      const QXLChannelSettings& settings) = 0;

  /// Gives an end of this process to the agent and returns its token; empty, with
  /// QXL::getErrorMessage() set, when the agent cannot have it.
  virtual std::string handOver(const boost::intrusive_ptr<QXLChannelEndPrototype>& end) = 0;

  /// Fingerprint of the key by which the machine at the end has proved to be itself, as
  /// ssh-keygen -l shows it; empty when it had to prove nothing, or that is not known.
  virtual std::string provenKey() const { return ""; }

  /// The agent at the end of the transport.
  virtual QXLEID eid() const = 0;
};

}  // namespace QXL

#endif
