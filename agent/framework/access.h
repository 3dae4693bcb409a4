// Access providers of the agent.
#ifndef QX_AGENT_FRAMEWORK_ACCESS_H
#define QX_AGENT_FRAMEWORK_ACCESS_H

#include <set>

#include "agent/transport/transport.h"
#include "agent/wire/request_context.h"
#include "framework/access.h"

namespace agent {

/// Who may run the stages of a migration here.
class AccessPolicy {
 public:
  /// The policy of this process: at first root and the agent's own user.
  static AccessPolicy& instance();

  void allow(long uid) { allowed_.insert(uid); }
  bool permits(const QXL::QXLClientContext& client, int right) const;

 private:
  AccessPolicy();
  std::set<long> allowed_;
};

/// The right that running a migration's stages takes.
constexpr int kMigrateRight = 72;

/// Whether whoever sent the current request has it; if not, `out` says so.
bool mayMigrate(const boost::intrusive_ptr<QXL::QXLMessageIterator>& out);

/// The provider of a controller: its requests report to one context and go to the
/// local agent.
class ControlAccess : public QXL::QXLAccessProviderPrototype {
 public:
  ControlAccess(boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context,
                boost::shared_ptr<QXL::QXLRequestTransport> local)
      : context_(std::move(context)), local_(std::move(local)) {}

  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> getRequestContext() override {
    return context_;
  }
  boost::intrusive_ptr<QXL::QXLMessageIterator> getAnswer() override { return nullptr; }
  boost::shared_ptr<QXL::QXLRequestTransport> getTransport(const QXL::QXLEID& eid) override;

 private:
  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context_;
  boost::shared_ptr<QXL::QXLRequestTransport> local_;
};

}  // namespace agent

#endif
