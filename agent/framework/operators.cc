#include "framework/operators.h"

#include "agent/framework/services.h"
#include "agent/system/last_error.h"
#include "agent/wire/channels.h"
#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/request_context.h"
#include "agent/wire/steps.h"
#include "framework/errors.h"

namespace QXL {

void QXLOperatorFunctionalPrototype::process(const std::string& method,
                                             const boost::intrusive_ptr<QXLMessageIterator>& in,
                                             const boost::intrusive_ptr<QXLMessageIterator>& out) {
  const auto found = methods_.find(method);
  if (found == methods_.end()) {
    addError(out, QXLErrors, 404, method);
  } else if (!found->second.handler) {
    addError(out, QXLErrors, 405, method);
  } else {
    (this->*found->second.handler)(in, out);
  }
}

QXLHaulControlOperatorPrototype::QXLHaulControlOperatorPrototype() = default;
QXLHaulControlOperatorPrototype::~QXLHaulControlOperatorPrototype() = default;

void QXLHaulControlOperatorPrototype::process(const std::string& method,
                                              const boost::intrusive_ptr<QXLMessageIterator>& in,
                                              const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (method == agent::kMethodCreate) return create(out);
  if (method == agent::kMethodInit) return init(in, out);
  if (method == agent::kMethodFinish) return finish(in, out);
  if (methods_.count(method) && methods_[method].handler && !initialised_) {
    addError(out, QXLErrors, 409, "stage '" + method + "' before init");
    return;
  }
  // Remembered before: the agent may be killed while it stops them.
  const bool stops = agent::stepOf(method).stopsServices;
  if (stops && agent::rememberStopped(params_.get()) != 0) {
    out->putError(-1,
                  "no service is stopped that could not be started again: " + getErrorMessage());
    return;
  }
  if (stops) agent::letStopScriptsEnd();
  QXLOperatorFunctionalPrototype::process(method, in, out);
  if (stops) {
    const auto* message = dynamic_cast<const agent::Message*>(out.get());
    const auto error = message ? message->firstError() : std::nullopt;
    if (error && error->first == agent::kAccessDenied) {
      agent::forgetStopped();
    } else {
      servicesStopped_ = true;
    }
  }
  if (serializer_) complete(0, out);
}

void QXLHaulControlOperatorPrototype::create(const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (serializer_) return addError(out, QXLErrors, 409, "the session has its worker already");
  serializer_ = createSerializer();
  if (!serializer_) addError(out, QXLErrors, 500, "no worker is registered");
}

void QXLHaulControlOperatorPrototype::init(const boost::intrusive_ptr<QXLMessageIterator>& in,
                                           const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (!serializer_) return addError(out, QXLErrors, 409, "init before create");
  if (initialised_) return addError(out, QXLErrors, 409, "the worker is initialised already");
  boost::shared_ptr<QXLHaulSerializerBaseParams> params = newParams();
  if (deserializeParams(in, params) != 0) {
    return addError(out, QXLErrors, 400, getErrorMessage());
  }
  const int result =
      serializer_->init(boost::shared_ptr<QXLConnectionInfo>(new QXLConnectionInfo()), params);
  complete(result, out);
  initialised_ = result == 0;
  if (initialised_) params_ = params;
}

void QXLHaulControlOperatorPrototype::finish(const boost::intrusive_ptr<QXLMessageIterator>& in,
                                             const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (!serializer_) return;
  complete(serializer_->finish(), out);
  long long succeeded = 0;
  in->getValueLongLong(succeeded, agent::kFieldSucceeded);
  if (servicesStopped_ && !succeeded) agent::startServices(params_.get());
  if (servicesStopped_) agent::forgetStopped();
  initialised_ = false;
  serializer_.reset();
  params_.reset();
}

// Closes a command that the worker left open; a result that no command has told
// goes into the answer.
void QXLHaulControlOperatorPrototype::complete(
    int result, const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (auto* local = dynamic_cast<QXLRequestLocal*>(serializer_.get())) local->closeCommand();
  const auto* message = dynamic_cast<const agent::Message*>(out.get());
  if (result != 0 && !(message && message->firstError())) {
    out->putError(result, serializer_->getContext()->getLastErrorText());
  }
}

boost::intrusive_ptr<QXLChannelEndPrototype> QXLHaulControlOperatorPrototype::getPhysHandle(
    const boost::intrusive_ptr<QXLMessageIterator>& in,
    const boost::intrusive_ptr<QXLMessageIterator>& out) {
  std::string token;
  if (in->getValueBase64(token, agent::kFieldChannel) != 0) {
    addError(out, QXLErrors, 400, "channel required");
    return nullptr;
  }
  const agent::CurrentRequest* request = agent::CurrentRequest::get();
  boost::intrusive_ptr<QXLChannelEndPrototype> end;
  if (request && request->channels) end = request->channels->take(token);
  if (!end) addError(out, QXLErrors, 400, "no channel waits under '" + token + "'");
  return end;
}

}  // namespace QXL
