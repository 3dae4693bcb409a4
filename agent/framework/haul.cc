#include "framework/haul.h"

#include <memory>
#include <nlohmann/json.hpp>

#include "agent/system/last_error.h"
#include "agent/transport/request.h"
#include "agent/transport/transport.h"
#include "agent/wire/channels.h"
#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"

namespace QXL {

QXLHaulSerializerBaseLocalPrototype::QXLHaulSerializerBaseLocalPrototype(
    const boost::intrusive_ptr<QXLAccessProviderPrototype>& access) {
  setAccessProvider(access);
}

QXLHaulSerializerBaseLocalPrototype::~QXLHaulSerializerBaseLocalPrototype() = default;

int QXLHaulSerializerBaseLocalPrototype::init(
    boost::shared_ptr<QXLConnectionInfo> connection,
    boost::shared_ptr<QXLHaulSerializerBaseParams> params) {
  if (!params) {
    getContextLocal()->setLastError(-1, "migration parameters missing");
    return -1;
  }
  connection_ = connection;
  params_ = params;
  return 0;
}

int QXLHaulSerializerBaseLocalPrototype::finish() {
  connection_.reset();
  params_.reset();
  return 0;
}

void QXLHaulSerializerBaseLocalPrototype::sync(
    const boost::intrusive_ptr<QXLProgressHandlerPrototype>&, const std::string&) {}

QXLHaulSerializerBaseAgentPrototype::QXLHaulSerializerBaseAgentPrototype(
    const QXLEID& eid, const boost::intrusive_ptr<QXLAccessProviderPrototype>& access,
    const std::string& operatorName, int)
    : eid_(eid), operatorName_(operatorName) {
  setAccessProvider(access);
}

QXLHaulSerializerBaseAgentPrototype::~QXLHaulSerializerBaseAgentPrototype() {
  if (sessionId_.empty()) return;
  try {
    send(agent::kMethodFinish, boost::intrusive_ptr<QXLMessageIterator>(new agent::Message()),
         nullptr);
  } catch (...) {
    // The session ends with its connection.
  }
}

boost::shared_ptr<QXLRequestTransport> QXLHaulSerializerBaseAgentPrototype::getTransport() const {
  return getAccessProvider() ? getAccessProvider()->getTransport(eid_) : nullptr;
}

int QXLHaulSerializerBaseAgentPrototype::create() {
  sessionId_ = agent::newToken();
  return send(agent::kMethodCreate, boost::intrusive_ptr<QXLMessageIterator>(new agent::Message()),
              nullptr);
}

int QXLHaulSerializerBaseAgentPrototype::init(
    boost::shared_ptr<QXLConnectionInfo>, boost::shared_ptr<QXLHaulSerializerBaseParams> params) {
  const auto handler = handler_;
  if (sessionId_.empty()) {
    if (int result = create()) return result;
  }
  handler_ = handler;
  boost::intrusive_ptr<QXLMessageIterator> message(new agent::Message());
  if (serializeParams(params, message) != 0) return -1;
  return send(agent::kMethodInit, message, nullptr);
}

int QXLHaulSerializerBaseAgentPrototype::finish() {
  if (sessionId_.empty()) return 0;
  boost::intrusive_ptr<QXLMessageIterator> message(new agent::Message());
  message->putValueLongLong(succeeded_ ? 1 : 0, agent::kFieldSucceeded);
  const int result = send(agent::kMethodFinish, message, nullptr);
  sessionId_.clear();
  return result;
}

int QXLHaulSerializerBaseAgentPrototype::callStage(const std::string& stage) {
  beginStage(stage);
  const int result = endStage();
  return result == 0 && watch_ ? watch_(stage) : result;
}

int QXLHaulSerializerBaseAgentPrototype::callStageWithHandle(
    const std::string& stage, const boost::intrusive_ptr<QXLChannelEndPrototype>& end) {
  std::string token;
  if (const auto* waiting = dynamic_cast<const agent::TokenChannelEnd*>(end.get())) {
    token = waiting->token();
  } else if (const auto transport = getTransport()) {
    token = transport->handOver(end);
  }
  boost::intrusive_ptr<QXLMessageIterator> message = beginStage(stage);
  message->putValueBase64(token, agent::kFieldChannel);
  return endStage();
}

boost::intrusive_ptr<QXLMessageIterator> QXLHaulSerializerBaseAgentPrototype::beginStage(
    const std::string& stage) {
  stage_ = stage;
  message_.reset(new agent::Message());
  return message_;
}

int QXLHaulSerializerBaseAgentPrototype::endStage() { return send(stage_, message_, nullptr); }

int QXLHaulSerializerBaseAgentPrototype::endStageWithAnswer(QXLReaderPrototype* reader) {
  const std::unique_ptr<QXLReaderPrototype> owned(reader);
  const auto handler = handler_;
  boost::intrusive_ptr<QXLMessageIterator> answer;
  if (int result = send(stage_, message_, &answer)) return result;
  if (reader->read(*answer) == 0 || reader->flags() != QXLReaderRequired) return 0;
  const std::string text = "the answer of '" + stage_ + "' lacks a field";
  if (handler) handler->error(-1, text);
  return agent::fail(text);
}

int QXLHaulSerializerBaseAgentPrototype::send(const std::string& method,
                                              const boost::intrusive_ptr<QXLMessageIterator>& in,
                                              boost::intrusive_ptr<QXLMessageIterator>* out) {
  // A modification holds for one request.
  const boost::intrusive_ptr<QXLProgressHandlerPrototype> handler = std::move(handler_);
  handler_.reset();
  boost::intrusive_ptr<agent::Message> answer(new agent::Message());
  const auto reject = [&](int code, const std::string& argument) {
    addError(answer, QXLErrors, code, argument);
  };

  const agent::CurrentRequest* request = agent::CurrentRequest::get();
  // What was begun is ended also after a cancel.
  agent::CancelToken* cancel =
      request && method != agent::kMethodFinish ? request->cancel.get() : nullptr;
  if (handler) handler->stageBegins(method);
  const auto transport = getTransport();
  if (!transport) {
    reject(410, "");
  } else if (sessionId_.empty()) {
    reject(409, "'" + method + "' without a session");
  } else if (cancel && cancel->isCancelled()) {
    reject(cancel->code(), cancel->argument());
  } else {
    agent::Request message;
    message.session = sessionId_;
    message.operatorName = operatorName_;
    message.method = method;
    message.body = static_cast<agent::Message&>(*in).body();
    nlohmann::json body;
    const int failed = transport->call(message, body, handler.get(), cancel);
    if (failed != 0) {
      answer->putError(failed, getErrorMessage());
    } else {
      answer.reset(new agent::Message(std::move(body)));
    }
    // What a cancelled stage says of itself is of no interest.
    if (cancel && cancel->isCancelled() && answer->firstError()) {
      answer.reset(new agent::Message());
      reject(cancel->code(), cancel->argument());
    }
  }

  int result = 0;
  if (const auto error = answer->firstError()) {
    result = error->first;
    std::string text = error->second;
    if (text.empty()) {
      // The caller of an access check gets a code alone.
      boost::intrusive_ptr<agent::Message> named(new agent::Message());
      addError(named, QXLErrors, result, std::to_string(result));
      text = named->firstError()->second;
    }
    agent::setLastError(text);
    if (handler) handler->error(result, text);
  }
  if (handler) handler->stageEnds(method, result);
  if (out) *out = answer;
  return result;
}

}  // namespace QXL
