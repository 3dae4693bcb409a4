#include "share/rsync/handover.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>

#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

struct Message {
  Message() {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
  char byte = 0;
  iovec part{&byte, 1};
  msghdr header{};
};

}  // namespace

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
  Message message;
  cmsghdr* rights = CMSG_FIRSTHDR(&message.header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(2 * sizeof(int));
  const int fds[2] = {in, out};
  std::memcpy(CMSG_DATA(rights), fds, sizeof fds);
  ssize_t count = 0;
  do {
    count = ::sendmsg(socket, &message.header, MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  if (count != 1) throw systemFailure(kExitSystem, "cannot hand over the data channel");
}

std::optional<Channel> receiveDescriptors(int socket) {
  Message message;
  ssize_t count = 0;
  do {
    count = ::recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  if (count < 0) throw systemFailure(kExitSystem, "cannot take over the data channel");
  if (count == 0) throw Failure(kExitSystem, "no data channel was handed over");
  const cmsghdr* rights = CMSG_FIRSTHDR(&message.header);
  if (rights == nullptr || rights->cmsg_type != SCM_RIGHTS ||
      rights->cmsg_len != CMSG_LEN(2 * sizeof(int)))
    return std::nullopt;
  int fds[2];
  std::memcpy(fds, CMSG_DATA(rights), sizeof fds);
  return Channel{Descriptor(fds[0]), Descriptor(fds[1])};
}

}  // namespace qxrsync
