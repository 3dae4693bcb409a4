#include "agent/framework/access.h"

#include <pwd.h>
#include <unistd.h>

#include "agent/system/last_error.h"
#include "agent/transport/connect.h"
#include "agent/wire/message_fields.h"
#include "framework/errors.h"
#include "framework/operators.h"

namespace agent {

AccessPolicy& AccessPolicy::instance() {
  static AccessPolicy policy;
  return policy;
}

AccessPolicy::AccessPolicy() : allowed_{0, static_cast<long>(geteuid())} {}

bool AccessPolicy::permits(const QXL::QXLClientContext& client, int right) const {
  return right == kMigrateRight && allowed_.count(client.uid) != 0;
}

bool mayMigrate(const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) {
  if (QXL::QXLAccessChecker::accessCheck(QXL::QXLAccessChecker::getClientContext(),
                                         QXL::QXLConfiguration::getLocalEID(),
                                         kMigrateRight) == 0) {
    return true;
  }
  QXL::addError(out, QXL::QXLErrors, kAccessDenied, QXL::getErrorMessage());
  return false;
}

boost::shared_ptr<QXL::QXLRequestTransport> ControlAccess::getTransport(const QXL::QXLEID& eid) {
  return eid == QXL::QXLEID::EID_INVALID ? local_ : nullptr;
}

namespace {

// A connection to another agent that the plug-in asked for.
class AccessAgent : public QXL::QXLAccessAgentPrototype {
 public:
  explicit AccessAgent(boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context)
      : context_(context ? std::move(context) : QXL::QXLRequestContextPrototype::createInstance()) {
  }

  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> getRequestContext() override {
    return context_;
  }
  boost::intrusive_ptr<QXL::QXLMessageIterator> getAnswer() override { return nullptr; }

  boost::shared_ptr<QXL::QXLRequestTransport> getTransport(const QXL::QXLEID& eid) override {
    return transport_ && transport_->eid() == eid ? transport_ : nullptr;
  }

  int initializeSync(
      const boost::shared_ptr<QXL::QXLConnectionInfo>& connection,
      const boost::intrusive_ptr<QXL::QXLProgressHandlerPrototype>& handler) override {
    transport_ = connect(*connection, handler.get());
    if (transport_) return 0;
    context_->setLastError(-1, QXL::getErrorMessage());
    if (handler) handler->error(-1, QXL::getErrorMessage());
    return -1;
  }

  QXL::QXLEID getConnectedEID() const override {
    return transport_ ? transport_->eid() : QXL::QXLEID::EID_INVALID;
  }

 private:
  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context_;
  boost::shared_ptr<QXL::QXLRequestTransport> transport_;
};

// Everything that an operator's worker needs is the calling thread's current
// request: the operator serves it on the same thread.
class OpSyncAccess : public QXL::QXLOpSyncAccessPrototype {
 public:
  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> getRequestContext() override {
    return QXL::QXLRequestContextPrototype::getCurrent();
  }
  boost::intrusive_ptr<QXL::QXLMessageIterator> getAnswer() override {
    const CurrentRequest* request = CurrentRequest::get();
    return request ? request->answer : nullptr;
  }
  boost::shared_ptr<QXL::QXLRequestTransport> getTransport(const QXL::QXLEID&) override {
    return nullptr;
  }
};

std::string accountName(uid_t uid) {
  const passwd* entry = getpwuid(uid);
  return entry ? entry->pw_name : std::to_string(uid);
}

}  // namespace
}  // namespace agent

namespace QXL {

const QXLEID QXLEID::EID_INVALID;

boost::intrusive_ptr<QXLAccessAgentPrototype> QXLAccessAgentPrototype::createInstance(
    const boost::shared_ptr<QXLEnvCache>&, const boost::shared_ptr<QXLEventLoop>&,
    const boost::intrusive_ptr<QXLRequestContextPrototype>& context) {
  return boost::intrusive_ptr<QXLAccessAgentPrototype>(new agent::AccessAgent(context));
}

boost::intrusive_ptr<QXLOpSyncAccessPrototype> QXLOpSyncAccessPrototype::createInstance(
    const std::string&, QXLOperatorPrototype*) {
  return boost::intrusive_ptr<QXLOpSyncAccessPrototype>(new agent::OpSyncAccess());
}

QXLEID QXLConfiguration::getLocalEID() {
  static const QXLEID local(std::to_string(getpid()));
  return local;
}

QXLClientContext QXLAccessChecker::getClientContext() {
  if (const agent::CurrentRequest* request = agent::CurrentRequest::get()) return request->client;
  QXLClientContext self;
  self.uid = geteuid();
  self.account = agent::accountName(geteuid());
  return self;
}

int QXLAccessChecker::accessCheck(const QXLClientContext& client, const QXLEID& eid, int right) {
  if (eid != QXLConfiguration::getLocalEID()) {
    return agent::fail("access rights are known for this agent only");
  }
  if (agent::AccessPolicy::instance().permits(client, right)) return 0;
  return agent::fail("user '" + client.account + "' lacks the right " + std::to_string(right));
}

}  // namespace QXL
