#include "host/pass_fds.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>

namespace host {

namespace {

// One piece of data, with room for descriptors beside it.
struct Message {
  Message(void* data, size_t size) : part{data, size} {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  alignas(cmsghdr) char control[CMSG_SPACE(kMaxPassedFds * sizeof(int))] = {};
  iovec part;
  msghdr header{};
};

}  // namespace

ssize_t sendWithFds(int socket, std::string_view bytes, std::span<const int> fds) {
  if (fds.size() > kMaxPassedFds) {
    errno = EINVAL;
    return -1;
  }
  Message message(const_cast<char*>(bytes.data()), bytes.size());
  if (!fds.empty()) {
    message.header.msg_control = message.control;
    message.header.msg_controllen = CMSG_SPACE(fds.size_bytes());
    cmsghdr* rights = CMSG_FIRSTHDR(&message.header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(fds.size_bytes());
    memcpy(CMSG_DATA(rights), fds.data(), fds.size_bytes());
  }
  ssize_t count = 0;
  do {
    count = sendmsg(socket, &message.header, MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count;
}

ssize_t receiveWithFds(int socket, void* buffer, size_t size, std::vector<Fd>& fds, int flags) {
  Message message(buffer, size);
  message.header.msg_control = message.control;
  message.header.msg_controllen = sizeof message.control;
  ssize_t count = 0;
  do {
    count = recvmsg(socket, &message.header, flags | MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return count;
  for (cmsghdr* rights = CMSG_FIRSTHDR(&message.header); rights != nullptr;
       rights = CMSG_NXTHDR(&message.header, rights)) {
    if (rights->cmsg_level != SOL_SOCKET || rights->cmsg_type != SCM_RIGHTS) continue;
    const size_t passed = (rights->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < passed; ++i) {
      int fd;
      memcpy(&fd, CMSG_DATA(rights) + i * sizeof fd, sizeof fd);
      fds.emplace_back(fd);
    }
  }
  return count;
}

}  // namespace host
