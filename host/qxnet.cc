// The C calls that list a machine's interfaces and addresses.
#include "framework/qxnet.h"

#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "host/error.h"
#include "host/leases.h"
#include "host/netlink.h"
#include "host/text.h"

struct qxnet_filter {
  unsigned excludedFlags;  // IFF_ flags; an interface with one of them is left out
};

namespace {

struct ReleaseInfo {
  void operator()(qxnet_info_t* info) const { qxnet_release_info(info); }
};
using InfoList = std::unique_ptr<qxnet_info_t, ReleaseInfo>;

template <size_t Size>
void copyText(char (&to)[Size], const std::string& from) {
  from.copy(to, Size - 1);  // The rest is zero: the record was made so.
}

/// An address that came by DHCP: a client's lease file tells so, or its lifetime
/// does. An IPv6 address with a lifetime mostly comes from router advertisements,
/// but those make no address with a whole prefix.
bool cameByDhcp(const host::NetLink& link, const host::NetAddress& address) {
  if (address.expires && (address.family == AF_INET || address.prefix == 128)) return true;
  return host::hasLease(link.name, link.index, address.text);
}

InfoList makeInfo(const host::NetLink& link, const std::vector<host::NetAddress>& addresses) {
  InfoList info(new qxnet_info_t{});
  copyText(info->name, link.name);
  copyText(info->mac, link.mac);
  info->flags = link.flags;
  qxnet_address_t** end = &info->addresses;
  for (const host::NetAddress& address : addresses) {
    if (address.index != link.index || address.linkLocal || address.temporary) continue;
    if (cameByDhcp(link, address)) info->dhcp = 1;
    *end = new qxnet_address_t{};
    (*end)->family = address.family;
    (*end)->prefix = address.prefix;
    copyText((*end)->text, address.text);
    end = &(*end)->next;
  }
  return info;
}

}  // namespace

qxnet_filter_t* qxnet_get_simple_filter(void) {
  return new (std::nothrow) qxnet_filter{IFF_LOOPBACK};
}

void qxnet_release_filter(qxnet_filter_t* filter) { delete filter; }

qxnet_info_t* qxnet_get_info(const qxnet_filter_t* filter) {
  try {
    const std::vector<host::NetAddress> addresses = host::readAddresses();
    InfoList list;
    qxnet_info_t* last = nullptr;
    for (const host::NetLink& link : host::readLinks()) {
      if (filter != nullptr && (link.flags & filter->excludedFlags) != 0) continue;
      InfoList info = makeInfo(link, addresses);
      qxnet_info_t* added = info.release();
      if (last == nullptr) {
        list.reset(added);
      } else {
        last->next = added;
      }
      last = added;
    }
    errno = 0;
    return list.release();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const std::exception&) {
    errno = EIO;
  }
  return nullptr;
}

void qxnet_release_info(qxnet_info_t* info) {
  while (info != nullptr) {
    for (qxnet_address_t* address = info->addresses; address != nullptr;) {
      delete std::exchange(address, address->next);
    }
    delete std::exchange(info, info->next);
  }
}
