// Addresses of agents.
#ifndef QX_AGENT_CONNECT_H
#define QX_AGENT_CONNECT_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <string>

#include "agent/transport.h"

namespace agent {

// Connects to the agent at an address: "unix:PATH", or "local" for an agent in
// this process. Null with the reason in QXL::getErrorMessage() when that fails.
// The handler, which may be null, hears of the connection's steps.
boost::shared_ptr<QXL::QXLRequestTransport> connect(const std::string& address,
                                                    QXL::QXLProgressHandlerPrototype* handler);

}  // namespace agent

#endif
