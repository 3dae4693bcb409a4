#include "agent/transport/ssh_address.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>

namespace agent {

namespace {

// What can be part of a host or user name here: nothing that ssh or a shell would
// take for more than a name.
bool isName(const std::string& text) {
  if (text.empty() || text[0] == '-') return false;
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return isalnum(c) || c == '.' || c == '-' || c == '_' || c == ':' || c == '%' || c == '\\';
  });
}

bool parsePort(const std::string& text, int& port) {
  if (text.empty() || text.size() > 5 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  port = std::atoi(text.c_str());
  return port >= 1 && port <= 65535;
}

}  // namespace

SshAddress parseSshAddress(const std::string& text) {
  const auto refuse = [&](const std::string& why) {
    throw std::runtime_error("'" + text + "' is not a valid address of a server: " + why);
  };
  std::string rest = text;
  if (rest.compare(0, 6, "ssh://") == 0) {
    rest.erase(0, 6);
    if (!rest.empty() && rest.back() == '/') rest.pop_back();
  }
  SshAddress address;
  const size_t at = rest.rfind('@');
  if (at != std::string::npos) {
    address.user = rest.substr(0, at);
    rest.erase(0, at + 1);
    if (!isName(address.user)) refuse("the user name is not a plain name");
  }
  std::string port;
  if (!rest.empty() && rest[0] == '[') {
    const size_t close = rest.find(']');
    if (close == std::string::npos) refuse("the bracket is not closed");
    address.host = rest.substr(1, close - 1);
    if (close + 1 < rest.size()) {
      if (rest[close + 1] != ':') refuse("something stands behind the bracket");
      port = rest.substr(close + 2);
      if (!parsePort(port, address.port)) refuse("the port is not between 1 and 65535");
    }
  } else {
    address.host = rest;
    // More than one colon is an IPv6 address without a port.
    const size_t colon = rest.find(':');
    if (colon != std::string::npos && rest.find(':', colon + 1) == std::string::npos) {
      address.host = rest.substr(0, colon);
      if (!parsePort(rest.substr(colon + 1), address.port)) {
        refuse("the port is not between 1 and 65535");
      }
    }
  }
  if (!isName(address.host)) refuse("the host name is not a plain name");
  return address;
}

}  // namespace agent
