#include "host/netlink.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "host/error.h"
#include "host/fd.h"
#include "host/text.h"

namespace host {
namespace {

constexpr int kDumpAttempts = 5;
constexpr unsigned kForEver = 0xffffffff;

/// Copies a structure from the start of `data`; false when it is too short. A
/// copy, because nothing says that the bytes are aligned.
template <class T>
bool take(std::string_view data, T& value) {
  if (data.size() < sizeof value) return false;
  memcpy(&value, data.data(), sizeof value);
  return true;
}

size_t aligned(size_t length) { return (length + 3) & ~size_t{3}; }

std::string_view after(std::string_view data, size_t length) {
  return data.substr(std::min(aligned(length), data.size()));
}

/// Calls `use` for each attribute's type and payload.
void forEachAttribute(std::string_view data,
                      const std::function<void(int, std::string_view)>& use) {
  rtattr header;
  while (take(data, header) && header.rta_len >= sizeof header && header.rta_len <= data.size()) {
    use(header.rta_type, data.substr(sizeof header, header.rta_len - sizeof header));
    data = after(data, header.rta_len);
  }
}

/// Calls `use` for the payload of each message of the given type.
void forEachMessage(std::string_view data, int type,
                    const std::function<void(std::string_view)>& use) {
  nlmsghdr header;
  while (take(data, header) && header.nlmsg_len >= sizeof header &&
         header.nlmsg_len <= data.size()) {
    if (header.nlmsg_type == type) {
      use(data.substr(sizeof header, header.nlmsg_len - sizeof header));
    }
    data = after(data, header.nlmsg_len);
  }
}

std::string macText(std::string_view bytes) {
  if (bytes.size() != 6 || bytes == std::string_view("\0\0\0\0\0\0", 6)) return {};
  std::string text;
  for (const char byte : bytes) {
    text += textf("%s%02x", text.empty() ? "" : ":", static_cast<unsigned char>(byte));
  }
  return text;
}

std::string addressText(int family, std::string_view bytes) {
  char text[INET6_ADDRSTRLEN];
  if (bytes.size() != (family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr)) ||
      inet_ntop(family, bytes.data(), text, sizeof text) == nullptr) {
    return {};
  }
  return text;
}

enum class End { kMore, kDone, kChanged };

/// Looks for the dump's end in what one read brought. Throws for an error.
End dumpEnd(std::string_view data) {
  End end = End::kMore;
  nlmsghdr header;
  while (take(data, header) && header.nlmsg_len >= sizeof header &&
         header.nlmsg_len <= data.size()) {
    if (header.nlmsg_flags & NLM_F_DUMP_INTR) return End::kChanged;
    if (header.nlmsg_type == NLMSG_DONE) end = End::kDone;
    nlmsgerr error;
    if (header.nlmsg_type == NLMSG_ERROR && take(data.substr(sizeof header), error)) {
      errno = -error.error;
      failErrno("the kernel refused to list network interfaces");
    }
    data = after(data, header.nlmsg_len);
  }
  return end;
}

/// One dump; false when the list changed on the way and must be read again.
bool dumpOnce(int type, std::string& messages) {
  const Fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!fd) failErrno("cannot ask for network interfaces");
  struct {
    nlmsghdr header;
    rtgenmsg body;
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof request.body);
  request.header.nlmsg_type = static_cast<uint16_t>(type);
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.body.rtgen_family = AF_UNSPEC;
  if (send(fd.get(), &request, sizeof request, 0) < 0) {
    failErrno("cannot ask for network interfaces");
  }
  messages.clear();
  std::string buffer(65536, '\0');  // The kernel's messages fill 32 KiB at most.
  for (;;) {
    const ssize_t got = recv(fd.get(), buffer.data(), buffer.size(), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) failErrno("cannot read the list of network interfaces");
    const std::string_view part(buffer.data(), static_cast<size_t>(got));
    const End end = dumpEnd(part);
    if (end == End::kChanged) return false;
    messages += part;
    messages.resize(aligned(messages.size()), '\0');
    if (end == End::kDone || got == 0) return true;
  }
}

/// While it lives, this thread is in the network namespace of another process.
class NetworkOf {
 public:
  explicit NetworkOf(pid_t process) : own_(openNetwork("self")) {
    const Fd there = openNetwork(std::to_string(process));
    if (setns(there.get(), CLONE_NEWNET) != 0) {
      failErrno("cannot look at the network of process %d", process);
    }
  }
  // Nothing that comes later may be done in another's network.
  ~NetworkOf() {
    if (setns(own_.get(), CLONE_NEWNET) != 0) abort();
  }
  NetworkOf(const NetworkOf&) = delete;
  NetworkOf& operator=(const NetworkOf&) = delete;

 private:
  static Fd openNetwork(const std::string& process) {
    const std::string path = "/proc/" + process + "/ns/net";
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) failErrno("cannot open %s", path.c_str());
    return fd;
  }

  const Fd own_;
};

std::string dump(int type) {
  std::string messages;
  for (int attempt = 0; attempt < kDumpAttempts; ++attempt) {
    if (dumpOnce(type, messages)) return messages;
  }
  fail(ExitCode::kFailed, "the list of network interfaces keeps changing");
}

}  // namespace

std::vector<NetLink> parseLinks(std::string_view messages) {
  std::vector<NetLink> links;
  forEachMessage(messages, RTM_NEWLINK, [&](std::string_view payload) {
    ifinfomsg info;
    if (!take(payload, info)) return;
    NetLink link;
    link.index = info.ifi_index;
    link.flags = info.ifi_flags;
    forEachAttribute(after(payload, sizeof info), [&](int type, std::string_view value) {
      if (type == IFLA_IFNAME) link.name = value.substr(0, value.find('\0'));
      if (type == IFLA_ADDRESS) link.mac = macText(value);
    });
    if (!link.name.empty()) links.push_back(link);
  });
  return links;
}

std::vector<NetAddress> parseAddresses(std::string_view messages) {
  std::vector<NetAddress> addresses;
  forEachMessage(messages, RTM_NEWADDR, [&](std::string_view payload) {
    ifaddrmsg info;
    if (!take(payload, info)) return;
    if (info.ifa_family != AF_INET && info.ifa_family != AF_INET6) return;
    NetAddress address;
    address.index = static_cast<int>(info.ifa_index);
    address.family = info.ifa_family;
    address.prefix = info.ifa_prefixlen;
    address.linkLocal = info.ifa_family == AF_INET6 && info.ifa_scope == RT_SCOPE_LINK;
    uint32_t flags = info.ifa_flags;
    std::string any;
    std::string local;
    forEachAttribute(after(payload, sizeof info), [&](int type, std::string_view value) {
      ifa_cacheinfo lifetime;
      if (type == IFA_ADDRESS) any = addressText(address.family, value);
      if (type == IFA_LOCAL) local = addressText(address.family, value);
      if (type == IFA_FLAGS) take(value, flags);
      if (type == IFA_CACHEINFO && take(value, lifetime)) {
        address.expires = lifetime.ifa_valid != kForEver;
      }
    });
    address.temporary = address.family == AF_INET6 && (flags & IFA_F_TEMPORARY) != 0;
    address.text = local.empty() ? any : local;
    if (!address.text.empty()) addresses.push_back(address);
  });
  return addresses;
}

std::vector<NetLink> readLinks() { return parseLinks(dump(RTM_GETLINK)); }

std::vector<NetAddress> readAddresses() { return parseAddresses(dump(RTM_GETADDR)); }

std::vector<NetAddress> readAddressesOf(pid_t process) {
  const NetworkOf there(process);
  return readAddresses();
}

}  // namespace host
