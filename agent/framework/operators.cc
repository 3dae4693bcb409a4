#include "framework/operators.h"

#include "agent/framework/services.h"
#include "agent/system/last_error.h"
#include "agent/wire/channels.h"
#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"

namespace QXL {

void QXLOperatorFunctionalPrototype::process(const std::string& method,
                                             const boost::intrusive_ptr<QXLMessageIterator>& in,
                                             const boost::intrusive_ptr<QXLMessageIterator>& out) {
  const auto found = m_methods.find(method);
  if (found == m_methods.end()) {
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
  if (method == agent::methodCreate) return create(out);
  if (method == agent::methodInit) return init(in, out);
  if (method == agent::methodFinish) return finish(in, out);
  if (m_methods.count(method) && m_methods[method].handler && !m_initialised) {
    addError(out, QXLErrors, 409, "stage '" + method + "' before init");
    return;
  }
  // Remembered before: the agent may be killed while it stops them.
  const bool stops = method == agent::stageStopServices;
  if (stops) agent::rememberStopped(m_params.get());
  QXLOperatorFunctionalPrototype::process(method, in, out);
  if (stops) {
    const auto* message = dynamic_cast<const agent::Message*>(out.get());
    const auto error = message ? message->firstError() : std::nullopt;
    if (error && error->first == agent::accessDenied) {
      agent::forgetStopped();
    } else {
      m_servicesStopped = true;
    }
  }
  if (m_serializer) complete(0, out);
}

void QXLHaulControlOperatorPrototype::create(const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (m_serializer) return addError(out, QXLErrors, 409, "the session has its worker already");
  m_serializer = createSerializer();
  if (!m_serializer) addError(out, QXLErrors, 500, "no worker is registered");
}

void QXLHaulControlOperatorPrototype::init(const boost::intrusive_ptr<QXLMessageIterator>& in,
                                           const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (!m_serializer) return addError(out, QXLErrors, 409, "init before create");
  if (m_initialised) return addError(out, QXLErrors, 409, "the worker is initialised already");
  boost::shared_ptr<QXLHaulSerializerBaseParams> params = newParams();
  if (deserializeParams(in, params) != 0) {
    return addError(out, QXLErrors, 400, getErrorMessage());
  }
  const int result =
      m_serializer->init(boost::shared_ptr<QXLConnectionInfo>(new QXLConnectionInfo()), params);
  complete(result, out);
  m_initialised = result == 0;
  if (m_initialised) m_params = params;
}

void QXLHaulControlOperatorPrototype::finish(const boost::intrusive_ptr<QXLMessageIterator>& in,
                                             const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (!m_serializer) return;
  complete(m_serializer->finish(), out);
  long long succeeded = 0;
  in->getValueLongLong(succeeded, agent::fieldSucceeded);
  if (m_servicesStopped && !succeeded) agent::startServices(m_params.get());
  if (m_servicesStopped) agent::forgetStopped();
  m_initialised = false;
  m_serializer.reset();
  m_params.reset();
}

// Closes a command that the worker left open; a result that no command has told
// goes into the answer.
void QXLHaulControlOperatorPrototype::complete(
    int result, const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (auto* local = dynamic_cast<QXLRequestLocal*>(m_serializer.get())) local->closeCommand();
  const auto* message = dynamic_cast<const agent::Message*>(out.get());
  if (result != 0 && !(message && message->firstError())) {
    out->putError(result, m_serializer->getContext()->getLastErrorText());
  }
}

boost::intrusive_ptr<QXLChannelEndPrototype> QXLHaulControlOperatorPrototype::getPhysHandle(
    const boost::intrusive_ptr<QXLMessageIterator>& in,
    const boost::intrusive_ptr<QXLMessageIterator>& out) {
  std::string token;
  if (in->getValueBase64(token, agent::fieldChannel) != 0) {
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
