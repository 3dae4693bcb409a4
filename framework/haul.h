// The two ends of a migration: workers that run here and proxies to workers on
// an agent.
#ifndef QX_FRAMEWORK_HAUL_H
#define QX_FRAMEWORK_HAUL_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <functional>
#include <string>

#include "framework/access.h"
#include "framework/channel.h"
#include "framework/request.h"

namespace QXL {

/// What both ends are initialised with. Polymorphic: a plug-in adds its own.
struct QXL_API QXLHaulSerializerBaseParams {
  virtual ~QXLHaulSerializerBaseParams() = default;
  long long ctid = 0;  ///< container id; a plug-in reads it as unsigned 32-bit
};

/// One end of a migration, wherever its work is done. Operations return 0 on
/// success; the reason of a failure is in the request's context.
class QXL_API QXLHaulSerializerBasePrototype : public virtual QXLRequest,
                                               public virtual QXLRequestModificator {
 public:
  virtual int init(boost::shared_ptr<QXLConnectionInfo> connection,
                   boost::shared_ptr<QXLHaulSerializerBaseParams> params) = 0;
  virtual int finish() = 0;
};

/// The end that sends, and the end that receives.
class QXL_API QXLHaulSerializerPrototype : public virtual QXLHaulSerializerBasePrototype {};
class QXL_API QXLHaulDeserializerPrototype : public virtual QXLHaulSerializerBasePrototype {};

/// Base of workers: an end whose stages run in this process.
class QXL_API QXLHaulSerializerBaseLocalPrototype : public virtual QXLHaulSerializerBasePrototype,
                                                    public QXLRequestLocal {
 public:
  explicit QXLHaulSerializerBaseLocalPrototype(
      const boost::intrusive_ptr<QXLAccessProviderPrototype>& access);
  ~QXLHaulSerializerBaseLocalPrototype() override;

  /// Keeps the record; fails on a null one ("migration parameters missing").
  int init(boost::shared_ptr<QXLConnectionInfo> connection,
           boost::shared_ptr<QXLHaulSerializerBaseParams> params) override;
  /// Drops the record.
  int finish() override;
  /// A worker is called directly; there is nothing to modify.
  void sync(const boost::intrusive_ptr<QXLProgressHandlerPrototype>& handler,
            const std::string& session) override;

 protected:
  /// The record of init; null before it.
  const boost::shared_ptr<QXLHaulSerializerBaseParams>& getParams() const { return params_; }

 private:
  boost::shared_ptr<QXLConnectionInfo> connection_;
  boost::shared_ptr<QXLHaulSerializerBaseParams> params_;
};

/// Called after a stage without parameters has ended well, with its name; what it returns is
/// the stage's result.
using QXLStageWatch = std::function<int(const std::string& stage)>;

class QXLHaulControl;

/// Base of proxies: every operation is one request to an operator of an agent.
/// A request that fails is reported to the handler of the sync modificator and
/// left in QXL::getErrorMessage(); the operation returns its code. The session on
/// the agent is made by the first operation and ended by finish or destruction.
class QXL_API QXLHaulSerializerBaseAgentPrototype
    : public QXLRequestModificatorAgent<QXLHaulSerializerBasePrototype> {
 public:
  /// flags: 0, nothing else is defined.
  QXLHaulSerializerBaseAgentPrototype(
      const QXLEID& eid, const boost::intrusive_ptr<QXLAccessProviderPrototype>& access,
      const std::string& operatorName, int flags);
  ~QXLHaulSerializerBaseAgentPrototype() override;

  /// Makes the session and the worker on the agent. init does it when needed.
  int create();
  int init(boost::shared_ptr<QXLConnectionInfo> connection,
           boost::shared_ptr<QXLHaulSerializerBaseParams> params) override;
  /// Sent also after a cancel; ends the session. Harmless without a session.
  int finish() override;
  /// Tells, before finish, that the migration succeeded. An agent whose session
  /// ends without that undoes what it did to its own machine's services.
  void setSucceeded(bool succeeded) { succeeded_ = succeeded; }
  void setWatch(const QXLStageWatch& watch) { watch_ = watch; }
  /// The transport to the agent; null when there is none.
  boost::shared_ptr<QXLRequestTransport> getTransport() const;

  virtual int serializeParams(const boost::shared_ptr<QXLHaulSerializerBaseParams>& params,
                              const boost::intrusive_ptr<QXLMessageIterator>& out) = 0;
  virtual int deserializeParams(const boost::intrusive_ptr<QXLMessageIterator>& in,
                                const boost::shared_ptr<QXLHaulSerializerBaseParams>& params) = 0;

 protected:
  int callStage(const std::string& stage);
  int callStageWithHandle(const std::string& stage,
                          const boost::intrusive_ptr<QXLChannelEndPrototype>& end);

  /// A stage with fields of its own: put them into the message that beginStage
  /// returns, then end it. endStageWithAnswer gives the answer of a stage that
  /// succeeded to the reader, which it takes over and frees.
  boost::intrusive_ptr<QXLMessageIterator> beginStage(const std::string& stage);
  int endStage();
  int endStageWithAnswer(QXLReaderPrototype* reader);

 private:
  friend QXLHaulControl;  // has stages done once more

  int send(const std::string& method, const boost::intrusive_ptr<QXLMessageIterator>& in,
           boost::intrusive_ptr<QXLMessageIterator>* out);

  QXLEID eid_;
  std::string operatorName_;
  std::string sessionId_;  ///< empty without a session
  bool succeeded_ = false;
  QXLStageWatch watch_;
  std::string stage_;  ///< begun and not ended
  boost::intrusive_ptr<QXLMessageIterator> message_;
};

}  // namespace QXL

#endif
