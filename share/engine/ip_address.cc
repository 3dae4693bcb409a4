#include "share/engine/ip_address.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <poll.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace engine {

namespace {

struct FreeInterfaces {
  void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
};

const in_addr& four(const void* address) {
  return static_cast<const sockaddr_in*>(address)->sin_addr;
}
const in6_addr& six(const void* address) {
  return static_cast<const sockaddr_in6*>(address)->sin6_addr;
}

// The connection's own outcome, once it is writable; 0, or an errno value.
int outcome(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

}  // namespace

std::optional<IpAddress> IpAddress::parse(const std::string& text) {
  if (text.find('\0') != std::string::npos) return std::nullopt;  // where inet_pton ends
  IpAddress parsed;
  auto* const v4 = reinterpret_cast<sockaddr_in*>(&parsed.address_);
  auto* const v6 = reinterpret_cast<sockaddr_in6*>(&parsed.address_);
  if (::inet_pton(AF_INET, text.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    return parsed;
  }
  if (::inet_pton(AF_INET6, text.c_str(), &v6->sin6_addr) != 1) return std::nullopt;
  v6->sin6_family = AF_INET6;
  return parsed;
}

std::string IpAddress::text() const {
  char text[INET6_ADDRSTRLEN] = "";
  if (address_.ss_family == AF_INET)
    ::inet_ntop(AF_INET, &four(&address_), text, sizeof text);
  else
    ::inet_ntop(AF_INET6, &six(&address_), text, sizeof text);
  return text;
}

bool IpAddress::isOf(const sockaddr* other) const {
  if (other == nullptr || other->sa_family != address_.ss_family) return false;
  if (other->sa_family == AF_INET) return four(other).s_addr == four(&address_).s_addr;
  return std::memcmp(&six(other), &six(&address_), sizeof(in6_addr)) == 0;
}

bool IpAddress::isOwn() const {
  ifaddrs* found = nullptr;
  if (::getifaddrs(&found) != 0) return false;
  const std::unique_ptr<ifaddrs, FreeInterfaces> list(found);
  for (const ifaddrs* one = found; one != nullptr; one = one->ifa_next)
    if (isOf(one->ifa_addr)) return true;
  return false;
}

host::Fd IpAddress::makeSocket() const {
  return host::Fd(::socket(address_.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

socklen_t IpAddress::size() const {
  return address_.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

// In the same place for both.
void IpAddress::setPort(std::uint16_t port) {
  reinterpret_cast<sockaddr_in*>(&address_)->sin_port = htons(port);
}
std::uint16_t IpAddress::port() const {
  return ntohs(reinterpret_cast<const sockaddr_in*>(&address_)->sin_port);
}

host::Fd IpAddress::listen(std::uint16_t& port) const {
  host::Fd socket = makeSocket();
  IpAddress bound = *this;
  socklen_t length = size();
  if (!socket || ::bind(socket.get(), generic(), length) != 0 || ::listen(socket.get(), 1) != 0 ||
      ::getsockname(socket.get(), bound.generic(), &length) != 0)
    return {};
  port = bound.port();
  return socket;
}

host::Fd IpAddress::connect(std::uint16_t port, const qxrsync::Deadline& deadline) const {
  host::Fd socket = makeSocket();
  IpAddress there = *this;
  there.setPort(port);
  if (!socket) return {};
  if (::connect(socket.get(), there.generic(), there.size()) == 0) return socket;
  if (errno != EINPROGRESS) return {};
  pollfd wanted{socket.get(), POLLOUT, 0};
  int ready = 0;
  while ((ready = ::poll(&wanted, 1, deadline.left())) < 0 && errno == EINTR) {
  }
  errno = ready > 0 ? outcome(socket.get()) : ETIMEDOUT;
  return errno == 0 ? std::move(socket) : host::Fd();
}

}  // namespace engine
