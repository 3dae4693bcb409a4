// Addresses of agents.
#ifndef QX_AGENT_TRANSPORT_CONNECT_H
#define QX_AGENT_TRANSPORT_CONNECT_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <string>

#include "agent/transport/transport.h"

namespace agent {

/// Connects to the agent at an address: "unix:PATH", "local" for an agent in this
/// process, or a server that is reached by ssh (see ssh_address.h), where the agent
/// is brought first. Null with the reason in QXL::getErrorMessage() when that fails.
/// The handler, which may be null, hears of the connection's steps.
boost::shared_ptr<QXL::QXLRequestTransport> connect(const QXL::QXLConnectionInfo& connection,
                                                    QXL::QXLProgressHandlerPrototype* handler);

/// Keeps a connection for those who connect to the same address with the same
/// options as long as this object lives: connect() gives them this one. Whoever looks
/// at a server and then migrates it logs in once. One such object per address; made
/// and destroyed while nobody connects.
class KeptConnection {
 public:
  /// Connects. Throws std::runtime_error with the reason when that fails.
  KeptConnection(const QXL::QXLConnectionInfo& connection,
                 QXL::QXLProgressHandlerPrototype* handler);
  ~KeptConnection();
  KeptConnection(const KeptConnection&) = delete;
  KeptConnection& operator=(const KeptConnection&) = delete;

  QXL::QXLRequestTransport& transport() const { return *transport_; }

 private:
  std::string name_;
  boost::shared_ptr<QXL::QXLRequestTransport> transport_;
};

}  // namespace agent

#endif
