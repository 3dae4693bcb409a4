#include "agent/transport/connect.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <stdexcept>

#include "agent/system/last_error.h"
#include "agent/system/socket_address.h"
#include "agent/transport/local_transport.h"
#include "agent/transport/remote_transport.h"
#include "agent/transport/ssh_transport.h"
#include "framework/errors.h"

namespace agent {

namespace {

host::Fd connectUnix(const std::string& path) {
  const sockaddr_un address = socketAddress(path);
  host::Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot connect to the agent at unix:" + path + ": " +
                             errnoText(errno));
  }
  return fd;
}

std::mutex keptMutex;
std::map<std::string, boost::shared_ptr<QXL::QXLRequestTransport>> keptConnections;

// Two connections of one name are alike.
std::string nameOf(const QXL::QXLConnectionInfo& connection) {
  std::string name = connection.address;
  for (const std::string& option : connection.transportOptions) name += '\n' + option;
  return name;
}

}  // namespace

KeptConnection::KeptConnection(const QXL::QXLConnectionInfo& connection,
                               QXL::QXLProgressHandlerPrototype* handler)
    : name_(nameOf(connection)), transport_(connect(connection, handler)) {
  if (!transport_) throw std::runtime_error(QXL::getErrorMessage());
  const std::lock_guard lock(keptMutex);
  keptConnections[name_] = transport_;
}

KeptConnection::~KeptConnection() {
  const std::lock_guard lock(keptMutex);
  keptConnections.erase(name_);
}

boost::shared_ptr<QXL::QXLRequestTransport> connect(const QXL::QXLConnectionInfo& connection,
                                                    QXL::QXLProgressHandlerPrototype* handler) {
  const std::string& address = connection.address;
  {
    const std::lock_guard lock(keptMutex);
    const auto kept = keptConnections.find(nameOf(connection));
    if (kept != keptConnections.end()) return kept->second;
  }
  try {
    if (address == "local")
      return boost::shared_ptr<QXL::QXLRequestTransport>(new LocalTransport());
    if (address.compare(0, 5, "unix:") == 0) {
      host::Fd fd = connectUnix(address.substr(5));
      host::Fd second(fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
      return boost::shared_ptr<QXL::QXLRequestTransport>(
          new RemoteTransport(std::move(fd), std::move(second), address));
    }
    return connectSsh(address, connection.transportOptions, handler);
  } catch (const std::exception& problem) {
    fail(problem.what());
  }
  return nullptr;
}

}  // namespace agent
