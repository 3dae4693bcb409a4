#include "agent/wire/channels.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "agent/system/last_error.h"

namespace agent {

LocalChannelEnd::LocalChannelEnd(host::Fd input, host::Fd output, host::Fd attendant)
    : input_(std::move(input)), output_(std::move(output)), attendant_(std::move(attendant)) {
  if (attendant_) fcntl(attendant_.get(), F_SETFD, 0);
}

void ChannelTable::put(const std::string& token,
                       boost::intrusive_ptr<QXL::QXLChannelEndPrototype> end) {
  std::lock_guard lock(mutex_);
  ends_[token] = std::move(end);
  arrived_.notify_all();
}

boost::intrusive_ptr<QXL::QXLChannelEndPrototype> ChannelTable::take(const std::string& token) {
  std::unique_lock lock(mutex_);
  arrived_.wait_for(lock, timeout_, [&]() { return ends_.count(token) != 0; });
  const auto found = ends_.find(token);
  if (found == ends_.end()) return nullptr;
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> end = std::move(found->second);
  ends_.erase(found);
  return end;
}

ChannelPair makeChannelPair(int pipeBytes) {
  int forth[2];
  int back[2];
  if (pipe2(forth, O_CLOEXEC) != 0) {
    failErrno("a data channel could not be made");
    return {};
  }
  host::Fd forthRead(forth[0]), forthWrite(forth[1]);
  if (pipe2(back, O_CLOEXEC) != 0) {
    failErrno("a data channel could not be made");
    return {};
  }
  host::Fd backRead(back[0]), backWrite(back[1]);
  if (pipeBytes > 0) {
    fcntl(forthWrite.get(), F_SETPIPE_SZ, pipeBytes);
    fcntl(backWrite.get(), F_SETPIPE_SZ, pipeBytes);
  }
  ChannelPair pair;
  pair.first.reset(new LocalChannelEnd(std::move(backRead), std::move(forthWrite)));
  pair.second.reset(new LocalChannelEnd(std::move(forthRead), std::move(backWrite)));
  return pair;
}

ChannelPair makeSocketChannelPair(int bufferBytes) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
    failErrno("a data channel could not be made");
    return {};
  }
  ChannelPair pair;
  boost::intrusive_ptr<LocalChannelEnd>* ends[] = {&pair.first, &pair.second};
  for (int i = 0; i < 2; ++i) {
    host::Fd input(sockets[i]);
    host::Fd output(fcntl(sockets[i], F_DUPFD_CLOEXEC, 3));
    if (!output) {
      failErrno("a data channel could not be made");
      if (i == 0) close(sockets[1]);
      return {};
    }
    if (bufferBytes > 0)
      setsockopt(sockets[i], SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
    ends[i]->reset(new LocalChannelEnd(std::move(input), std::move(output)));
  }
  return pair;
}

std::string newToken() {
  unsigned char bytes[16];
  for (size_t filled = 0; filled < sizeof bytes;) {
    const ssize_t count = getrandom(bytes + filled, sizeof bytes - filled, 0);
    if (count < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    filled += static_cast<size_t>(count);
  }
  static const char digits[] = "0123456789abcdef";
  std::string token;
  for (const unsigned char byte : bytes) {
    token += digits[byte >> 4];
    token += digits[byte & 15];
  }
  return token;
}

}  // namespace agent
