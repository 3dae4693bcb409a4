// Addresses of agents.
#ifndef QX_AGENT_CONNECT_H
#define QX_AGENT_CONNECT_H

#include <boost/smart_ptr/shared_ptr.hpp>

#include "agent/transport.h"

namespace agent {

// Connects to the agent at an address: "unix:PATH", "local" for an agent in this
// process, or a server that is reached by ssh (see ssh_address.h), where the agent
// is brought first. Null with the reason in QXL::getErrorMessage() when that fails.
// The handler, which may be null, hears of the connection's steps.
boost::shared_ptr<QXL::QXLRequestTransport> connect(const QXL::QXLConnectionInfo& connection,
                                                    QXL::QXLProgressHandlerPrototype* handler);

}  // namespace agent

#endif
