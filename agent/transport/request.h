// One request, before it is encoded.
#ifndef QX_AGENT_TRANSPORT_REQUEST_H
#define QX_AGENT_TRANSPORT_REQUEST_H

#include <nlohmann/json.hpp>
#include <string>

namespace agent {

struct Request {
  std::string session;       ///< the session's name; chosen by the caller
  std::string operatorName;  ///< which operator serves the session
  std::string method;
  nlohmann::json body = nlohmann::json::object();
};

}  // namespace agent

#endif
