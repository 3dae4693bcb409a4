#include "agent/wire/channels.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "agent/system/last_error.h"
#include "host/descriptors.h"

namespace agent {

LocalChannelEnd::LocalChannelEnd(host::Fd input, host::Fd output, host::Fd attendant)
    : input_(std::move(input)), output_(std::move(output)), attendant_(std::move(attendant)) {}

void LocalChannelEnd::use() {
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
  if (auto* local = dynamic_cast<LocalChannelEnd*>(end.get())) local->use();
  return end;
}

ChannelPair makeChannelPair(int pipeBytes) {
  host::FdPair forth = host::makePipe();
  host::FdPair back = forth ? host::makePipe() : host::FdPair();
  if (!back) {
    failErrno("a data channel could not be made");
    return {};
  }
  if (pipeBytes > 0) {
    fcntl(forth.second.get(), F_SETPIPE_SZ, pipeBytes);
    fcntl(back.second.get(), F_SETPIPE_SZ, pipeBytes);
  }
  ChannelPair pair;
  pair.first.reset(new LocalChannelEnd(std::move(back.first), std::move(forth.second)));
  pair.second.reset(new LocalChannelEnd(std::move(forth.first), std::move(back.second)));
  return pair;
}

ChannelPair makeSocketChannelPair(int bufferBytes) {
  host::FdPair sockets = host::makeSocketPair();
  const auto copyOf = [](const host::Fd& fd) {
    return host::Fd(fd ? fcntl(fd.get(), F_DUPFD_CLOEXEC, 3) : -1);
  };
  host::Fd first = copyOf(sockets.first);
  host::Fd second = first ? copyOf(sockets.second) : host::Fd();
  if (!second) {
    failErrno("a data channel could not be made");
    return {};
  }
  if (bufferBytes > 0) {
    for (const host::Fd* fd : {&first, &second})
      setsockopt(fd->get(), SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
  }
  ChannelPair pair;
  pair.first.reset(new LocalChannelEnd(std::move(sockets.first), std::move(first)));
  pair.second.reset(new LocalChannelEnd(std::move(sockets.second), std::move(second)));
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
