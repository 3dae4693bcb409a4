#include "host/interfaces.h"

#include <net/if.h>

#include <cctype>
#include <string_view>

#include "host/error.h"
#include "host/text.h"

namespace host {
namespace {

std::vector<std::string_view> cut(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const size_t end = text.find(separator);
    if (end != 0) parts.push_back(text.substr(0, end));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return parts;
}

bool isInterfaceName(std::string_view name) {
  if (name.empty() || name.size() >= IFNAMSIZ || name == "." || name == "..") return false;
  for (const char c : name) {
    if (c == '/' || c == ':' || isgraph(static_cast<unsigned char>(c)) == 0) return false;
  }
  return true;
}

bool isMac(std::string_view mac) {
  if (mac.size() != 17) return false;
  for (size_t i = 0; i < mac.size(); ++i) {
    const auto c = static_cast<unsigned char>(mac[i]);
    if (i % 3 == 2 ? c != ':' : isxdigit(c) == 0) return false;
  }
  return true;
}

void putField(const Container& container, std::string_view field, Interface& interface) {
  const size_t equals = field.find('=');
  const std::string_view key = field.substr(0, equals);
  const std::string value(equals == field.npos ? std::string_view() : field.substr(equals + 1));
  const bool known = key == "ifname" || key == "host_ifname" || key == "mac" || key == "ip";
  const bool good = key == "ip"    ? !value.empty()
                    : key == "mac" ? isMac(value)
                                   : isInterfaceName(value);
  if (!known || !good) {
    fail(ExitCode::kBadConfig, "NETIF of container %u has the %s field '%s'", container.id,
         known ? "malformed" : "unknown", std::string(field).c_str());
  }
  if (key == "ifname") interface.name = value;
  if (key == "host_ifname") interface.hostName = value;
  if (key == "mac") interface.mac = value;
  if (key == "ip") interface.addresses.push_back(value);
}

}  // namespace

std::vector<Interface> interfacesOf(const Container& container) {
  std::vector<Interface> interfaces;
  const std::string netif = container.var("NETIF");
  for (const std::string_view part : cut(netif, ';')) {
    Interface interface;
    for (const std::string_view field : cut(part, ',')) putField(container, field, interface);
    if (interface.name.empty()) {
      fail(ExitCode::kBadConfig, "NETIF of container %u has an interface without ifname: '%s'",
           container.id, std::string(part).c_str());
    }
    interfaces.push_back(std::move(interface));
  }
  const std::string addresses = container.var("IP_ADDRESS");
  if (netif.empty() && !splitWords(addresses).empty()) {
    Interface interface;
    interface.name = "eth0";
    for (const std::string_view word : splitWords(addresses)) {
      interface.addresses.emplace_back(word);
    }
    interfaces.push_back(std::move(interface));
  }
  for (size_t i = 0; i < interfaces.size(); ++i) {
    if (interfaces[i].hostName.empty()) interfaces[i].hostName = textf("qx%u.%zu", container.id, i);
  }
  return interfaces;
}

}  // namespace host
