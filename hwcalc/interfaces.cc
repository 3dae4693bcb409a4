#include "hwcalc/interfaces.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace hwcalc {

namespace {

class Socket {
 public:
  Socket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (fd_ != -1) close(fd_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  bool request(unsigned long what, void* argument) const {
    return fd_ != -1 && ioctl(fd_, what, argument) == 0;
  }

 private:
  int fd_;
};

sockaddr_in inetAddress(const sockaddr& address) {
  sockaddr_in inet;
  std::memcpy(&inet, &address, sizeof(inet));
  return inet;
}

// The interfaces that have an address. False when they cannot be read.
bool readRequests(const Socket& socket, std::vector<ifreq>& requests) {
  constexpr int kRoomForNewOnes = 400;  // bytes
  ifconf list{};
  if (!socket.request(SIOCGIFCONF, &list)) return false;
  std::vector<char> buffer(static_cast<std::size_t>(list.ifc_len) + kRoomForNewOnes);
  list.ifc_len = static_cast<int>(buffer.size());
  list.ifc_buf = buffer.data();
  if (!socket.request(SIOCGIFCONF, &list)) return false;
  requests.resize(static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq));
  if (requests.empty()) return true;
  std::memcpy(requests.data(), buffer.data(), requests.size() * sizeof(ifreq));
  return true;
}

// Fills an entry from its request; the address in the request tells the kernel
// which of the interface's addresses is meant.
bool readEntry(const Socket& socket, const ifreq& request, ifi_info& entry) {
  std::memcpy(entry.name, request.ifr_name, sizeof(entry.name));
  entry.name[sizeof(entry.name) - 1] = '\0';
  entry.address = inetAddress(request.ifr_addr);
  ifreq flags = request;
  if (!socket.request(SIOCGIFFLAGS, &flags)) return false;
  entry.flags = static_cast<unsigned short>(flags.ifr_flags);
  ifreq broadcast = request;
  if ((entry.flags & IFF_BROADCAST) != 0) {
    if (!socket.request(SIOCGIFBRDADDR, &broadcast)) return false;
    entry.broadcast = inetAddress(broadcast.ifr_broadaddr);
  }
  ifreq destination = request;
  if ((entry.flags & IFF_POINTOPOINT) != 0) {
    if (!socket.request(SIOCGIFDSTADDR, &destination)) return false;
    entry.destination = inetAddress(destination.ifr_dstaddr);
  }
  return true;
}

}  // namespace

ifi_info* get_if_inet_info() {
  const Socket socket;
  std::vector<ifreq> requests;
  if (!readRequests(socket, requests)) return nullptr;
  IfiInfoList list;
  ifi_info* last = nullptr;
  for (const ifreq& request : requests) {
    auto entry = std::make_unique<ifi_info>();
    if (!readEntry(socket, request, *entry)) return nullptr;
    ifi_info* added = entry.release();
    if (last == nullptr) {
      list.reset(added);
    } else {
      last->next = added;
    }
    last = added;
  }
  return list.release();
}

void free_ifi_info(ifi_info* list) {
  while (list != nullptr) {
    ifi_info* next = list->next;
    delete list;
    list = next;
  }
}

}  // namespace hwcalc
