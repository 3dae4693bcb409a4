#ifndef QX_SHARE_ENGINE_IP_ADDRESS_H
#define QX_SHARE_ENGINE_IP_ADDRESS_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

#include "host/fd.h"
#include "share/rsync/deadline.h"

namespace engine {

inline constexpr size_t kLongestAddress = INET6_ADDRSTRLEN - 1;  ///< bytes of text

/// An address of IPv4 or IPv6, without a port or a scope.
class IpAddress {
 public:
  /// Nothing if it is not an address as inet_pton(3) knows them.
  static std::optional<IpAddress> parse(const std::string& text);

  /// As everybody writes it, whatever it was parsed from.
  std::string text() const;
  /// Whether an interface of this network namespace has it.
  bool isOwn() const;

  /// A socket that listens there, for one connection, at a port that the kernel finds.
  /// Without one, errno says why.
  host::Fd listen(std::uint16_t& port) const;
  /// A connection to that port, non-blocking. Without one, errno says why: ETIMEDOUT at
  /// the deadline.
  host::Fd connect(std::uint16_t port, const qxrsync::Deadline& deadline) const;

 private:
  host::Fd makeSocket() const;
  socklen_t size() const;
  void setPort(std::uint16_t port);
  std::uint16_t port() const;
  const sockaddr* generic() const { return reinterpret_cast<const sockaddr*>(&address_); }
  sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address_); }
  bool isOf(const sockaddr* other) const;

  sockaddr_storage address_{};
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_IP_ADDRESS_H
