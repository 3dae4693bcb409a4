// The ids that a system's files of accounts name.
#ifndef QX_HOST_ACCOUNTS_H
#define QX_HOST_ACCOUNTS_H

#include <cstdint>
#include <set>
#include <string_view>

namespace host {

/// Of a text like /etc/passwd (passwd(5)) or /etc/group (group(5)): the third fields.
/// Lines without a number there are passed over.
std::set<uint32_t> parseAccountIds(std::string_view text);

}  // namespace host

#endif
