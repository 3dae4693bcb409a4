#include "share/rsync/handover.h"

#include <sys/socket.h>

#include <utility>
#include <vector>

#include "host/pass_fds.h"
#include "share/rsync/failure.h"

namespace qxrsync {

bool carriesDescriptors(int in, int out) {
  for (const int fd : {in, out}) {
    int domain = 0;
    socklen_t size = sizeof domain;
    if (::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 || domain != AF_UNIX)
      return false;
  }
  return true;
}

void sendDescriptors(int socket, int in, int out) {
  const int fds[2] = {in, out};
  if (host::sendWithFds(socket, std::string_view("", 1), fds) != 1)
    throw systemFailure(kExitSystem, "cannot hand over the data channel");
}

std::optional<Channel> receiveDescriptors(int socket) {
  char byte = 0;
  std::vector<host::Fd> fds;
  const ssize_t count = host::receiveWithFds(socket, &byte, 1, fds);
  if (count < 0) throw systemFailure(kExitSystem, "cannot take over the data channel");
  if (count == 0) throw Failure(kExitSystem, "no data channel was handed over");
  if (fds.size() != 2) return std::nullopt;
  return Channel{std::move(fds[0]), std::move(fds[1])};
}

}  // namespace qxrsync
