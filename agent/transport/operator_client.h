// Requests to one of the operators that an agent serves itself.
#ifndef QX_AGENT_TRANSPORT_OPERATOR_CLIENT_H
#define QX_AGENT_TRANSPORT_OPERATOR_CLIENT_H

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <string>

#include "agent/system/cancel.h"
#include "agent/transport/transport.h"
#include "agent/wire/message.h"

namespace agent {

/// A session with the operator, which begins when this is made and ends with it.
class OperatorClient {
 public:
  /// The handler and `cancel` may be null. Throws like ask.
  OperatorClient(QXL::QXLRequestTransport& transport, std::string operatorName,
                 QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel);
  /// Whoever was cancelled leaves, which ends the session too: an agent that is out of
  /// reach is not waited for.
  ~OperatorClient();
  OperatorClient(const OperatorClient&) = delete;
  OperatorClient& operator=(const OperatorClient&) = delete;

  /// Sends the request and waits for its answer. Throws std::runtime_error with the
  /// agent's reason, or the connection's.
  boost::intrusive_ptr<Message> ask(const std::string& method, const Message& request);

 private:
  QXL::QXLRequestTransport& transport_;
  std::string operatorName_;
  QXL::QXLProgressHandlerPrototype* handler_;
  CancelToken* cancel_;
  std::string session_;
};

}  // namespace agent

#endif
