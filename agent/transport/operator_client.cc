#include "agent/transport/operator_client.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/transport/request.h"
#include "agent/wire/channels.h"
#include "agent/wire/message_fields.h"
#include "framework/errors.h"

namespace agent {

OperatorClient::OperatorClient(QXL::QXLRequestTransport& transport, std::string operatorName,
                               QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel)
    : transport_(transport),
      operatorName_(std::move(operatorName)),
      handler_(handler),
      cancel_(cancel),
      session_(newToken()) {
  ask(kMethodCreate, Message());
}

OperatorClient::~OperatorClient() {
  if (cancel_ && cancel_->isCancelled()) return;
  cancel_ = nullptr;
  try {
    ask(kMethodFinish, Message());
  } catch (const std::exception&) {
    // It has ended, or ends with the connection.
  }
}

boost::intrusive_ptr<Message> OperatorClient::ask(const std::string& method,
                                                  const Message& request) {
  Request sent;
  sent.session = session_;
  sent.operatorName = operatorName_;
  sent.method = method;
  sent.body = request.body();
  nlohmann::json body;
  if (transport_.call(sent, body, handler_, cancel_) != 0) {
    throw std::runtime_error(QXL::getErrorMessage());
  }
  boost::intrusive_ptr<Message> answer(new Message(std::move(body)));
  if (const auto error = answer->firstError()) throw std::runtime_error(error->second);
  return answer;
}

}  // namespace agent
