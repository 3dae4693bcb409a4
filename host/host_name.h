// Texts that are host names.
#ifndef QX_HOST_HOST_NAME_H
#define QX_HOST_HOST_NAME_H

#include <string_view>

namespace host {

/// Letters, digits, hyphens and underscores, in labels of at most 63 that dots separate
/// and that neither begin nor end with a hyphen; at most 253 characters.
bool isHostName(std::string_view name);

}  // namespace host

#endif
