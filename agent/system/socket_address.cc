#include "agent/system/socket_address.h"

#include <sys/socket.h>

#include <cstring>
#include <stdexcept>

namespace agent {

sockaddr_un socketAddress(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("'" + path + "' cannot be the path of a socket: it must have 1 to " +
                             std::to_string(sizeof address.sun_path - 1) + " bytes");
  }
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

}  // namespace agent
