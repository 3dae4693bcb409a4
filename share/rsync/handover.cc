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

void sendChannel(int socket, Channel channel) {
  Message message;
  cmsghdr* rights = CMSG_FIRSTHDR(&message.header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(2 * sizeof(int));
  const int fds[2] = {channel.in.get(), channel.out.get()};
  std::memcpy(CMSG_DATA(rights), fds, sizeof fds);
  if (::sendmsg(socket, &message.header, MSG_NOSIGNAL) != 1)
    throw systemFailure(exitSystem, "cannot hand over the data channel");
}

Channel receiveChannel(int socket) {
  Message message;
  ssize_t count = 0;
  do {
    count = ::recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  if (count < 0) throw systemFailure(exitSystem, "cannot take over the data channel");
  const cmsghdr* rights = CMSG_FIRSTHDR(&message.header);
  if (count == 0 || rights == nullptr || rights->cmsg_type != SCM_RIGHTS ||
      rights->cmsg_len != CMSG_LEN(2 * sizeof(int)))
    throw Failure(exitSystem, "no data channel was handed over");
  int fds[2];
  std::memcpy(fds, CMSG_DATA(rights), sizeof fds);
  return {Descriptor(fds[0]), Descriptor(fds[1])};
}

}  // namespace qxrsync
