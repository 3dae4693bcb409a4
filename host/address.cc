#include "host/address.h"

#include <arpa/inet.h>

#include <optional>

#include "host/text.h"

namespace host {
namespace {

/// The bits of the address, 0 for what is none.
uint64_t lengthOf(const std::string& text) {
  in6_addr bytes;
  if (inet_pton(AF_INET, text.c_str(), &bytes) == 1) return 32;
  return inet_pton(AF_INET6, text.c_str(), &bytes) == 1 ? 128 : 0;
}

}  // namespace

bool isAddress(const std::string& text) { return lengthOf(text) != 0; }

bool isInterfaceAddress(const std::string& text) {
  const size_t slash = text.find('/');
  const std::string address = text.substr(0, slash);
  const uint64_t length = lengthOf(address);
  if (length == 0 || address.find_first_not_of("0.:") == address.npos) return false;
  if (slash == text.npos) return true;
  const std::optional<uint64_t> prefix = parseDecimal(text.substr(slash + 1));
  return prefix && *prefix >= 1 && *prefix <= length;
}

}  // namespace host
