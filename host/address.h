// Texts that are internet addresses.
#ifndef QX_HOST_ADDRESS_H
#define QX_HOST_ADDRESS_H

#include <string>

namespace host {

/// An IPv4 or IPv6 address alone, as inet_pton(3) reads it.
bool isAddress(const std::string& text);

/// What an interface of one host may have: ADDRESS or ADDRESS/PREFIX with a prefix from
/// 1 to 32 or 128; not the address of nobody (0.0.0.0, ::).
bool isInterfaceAddress(const std::string& text);

}  // namespace host

#endif
