#include "hwcalc/addresses.h"

#include <arpa/inet.h>
#include <unistd.h>

#include "expand/strings.h"
#include "hwcalc/hw_calc.h"

namespace hwcalc {

namespace {

std::string textOf(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
  return text;
}

// Intended: 127.0.0.0/24 only, not 127/8. An address elsewhere in 127/8 on another
// interface than the loopback one was put there on purpose and has to stay.
bool isLoopback(const sockaddr_in& address) {
  return (ntohl(address.sin_addr.s_addr) & 0xffffff00u) == 0x7f000000u;
}

bool counts(const ifi_info& entry) {
  if ((entry.flags & IFF_LOOPBACK) != 0 || !entry.address) return false;
  return entry.address->sin_family == AF_INET && !isLoopback(*entry.address);
}

std::string joined(const std::list<std::string>& words) {
  return Expand::join(", ", words.begin(), words.end());
}

}  // namespace

bool runsContainers() { return access("/proc/qx", F_OK) == 0; }

std::list<std::string> chooseAddresses(const ifi_info* list, bool containers,
                                       std::list<QXA::QXACalculateHWNodeWarning>& warnings) {
  std::list<std::string> chosen;
  std::list<std::string> pointToPoint;
  std::list<std::string> down;
  unsigned counted = 0;
  for (const ifi_info* entry = list; entry != nullptr; entry = entry->next) {
    if (!counts(*entry)) continue;
    ++counted;
    if ((entry->flags & IFF_UP) == 0) {
      down.push_back(entry->name);
    } else if ((entry->flags & IFF_POINTOPOINT) == 0 || containers) {
      chosen.push_back(textOf(*entry->address));
    } else {
      pointToPoint.push_back(textOf(*entry->address));
    }
  }
  if (counted > 1) {
    warnings.push_back({QXHWCalc::WARN_SEVERAL_INTERFACES,
                        "Several network interfaces were found. All IP addresses for them will be "
                        "assigned to a single CT network interface."});
  }
  if (!down.empty()) {
    warnings.push_back({QXHWCalc::WARN_SKIPPED_INTERFACES,
                        "The following interfaces will not be migrated, because they were not "
                        "brought up: " +
                            joined(down)});
  }
  if (!pointToPoint.empty()) {
    warnings.push_back({QXHWCalc::WARN_SKIPPED_INTERFACES,
                        "The following point-to-point addresses will not be set in the CT "
                        "config: " +
                            joined(pointToPoint)});
  }
  return chosen;
}

}  // namespace hwcalc

std::list<std::string> QXHWCalc::getIPAddresses(
    std::list<QXA::QXACalculateHWNodeWarning>& warnings) const {
  const hwcalc::IfiInfoList list(hwcalc::get_if_inet_info());
  return hwcalc::chooseAddresses(list.get(), hwcalc::runsContainers(), warnings);
}
