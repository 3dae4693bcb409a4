// Who is asked, who asks, and what they may do.
#ifndef QX_FRAMEWORK_ACCESS_H
#define QX_FRAMEWORK_ACCESS_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <string>
#include <vector>

#include "framework/request.h"

namespace QXL {

/// The identifier of one agent.
class QXL_API QXLEID {
 public:
  QXLEID() = default;
  explicit QXLEID(const std::string& text) : text_(text) {}

  /// Names no agent; as a target it means the agent of this process.
  static const QXLEID EID_INVALID;

  const std::string& text() const { return text_; }
  bool operator==(const QXLEID& other) const { return text_ == other.text_; }
  bool operator!=(const QXLEID& other) const { return text_ != other.text_; }

 private:
  std::string text_;
};

/// How to reach an agent.
struct QXLConnectionInfo {
  /// "unix:PATH", "local", or another transport's address; empty for none.
  std::string address;
  /// Options for the transport's program, each as it takes them after "-o".
  std::vector<std::string> transportOptions;
};

/// The transport of requests to one agent; the agent defines it.
class QXLRequestTransport;

/// Gives an object the requests it belongs to and the transport to an agent. Handed
/// through by the plug-in, used by the framework.
class QXL_API QXLAccessProviderPrototype : public virtual QXLRefCounter {
 public:
  /// The context of the request on whose behalf the object works. Never null.
  virtual boost::intrusive_ptr<QXLRequestContextPrototype> getRequestContext() = 0;
  /// The answer of that request; null when nobody waits for one.
  virtual boost::intrusive_ptr<QXLMessageIterator> getAnswer() = 0;
  /// The transport to the agent with that id; null when there is none.
  virtual boost::shared_ptr<QXLRequestTransport> getTransport(const QXLEID& eid) = 0;
};

class QXLEnvCache;
class QXLEventLoop;

/// A connection to another agent.
class QXL_API QXLAccessAgentPrototype : public QXLAccessProviderPrototype {
 public:
  /// All three arguments may be null: no cache, the calling thread, a context of
  /// its own. The connection is not made yet.
  static boost::intrusive_ptr<QXLAccessAgentPrototype> createInstance(
      const boost::shared_ptr<QXLEnvCache>& envCache,
      const boost::shared_ptr<QXLEventLoop>& eventLoop,
      const boost::intrusive_ptr<QXLRequestContextPrototype>& context);

  /// Connects and waits until that is done. Returns 0, or non-zero with the reason
  /// given to the handler (which may be null) and left in this object's context.
  virtual int initializeSync(const boost::shared_ptr<QXLConnectionInfo>& connection,
                             const boost::intrusive_ptr<QXLProgressHandlerPrototype>& handler) = 0;

  /// The agent at the other end; EID_INVALID before a connection is made.
  virtual QXLEID getConnectedEID() const = 0;
};

class QXLOperatorPrototype;

/// Lets the objects that an operator makes work on behalf of the request that the
/// operator serves at the time.
class QXL_API QXLOpSyncAccessPrototype : public QXLAccessProviderPrototype {
 public:
  /// The operator must outlive the access; the access does not keep it alive.
  static boost::intrusive_ptr<QXLOpSyncAccessPrototype> createInstance(const std::string& name,
                                                                       QXLOperatorPrototype* op);
};

/// The caller of a request, as its transport vouches for it.
struct QXLClientContext {
  long uid = -1;        ///< numeric user id; -1 when unknown
  std::string account;  ///< for messages
};

class QXL_API QXLConfiguration {
 public:
  /// The agent of this process.
  static QXLEID getLocalEID();
};

class QXL_API QXLAccessChecker {
 public:
  /// The caller of the request that the calling thread serves; a thread that
  /// serves none is its own caller.
  static QXLClientContext getClientContext();
  /// 0 when the caller has the right on that agent, non-zero otherwise.
  static int accessCheck(const QXLClientContext& client, const QXLEID& eid, int right);
};

}  // namespace QXL

#endif
