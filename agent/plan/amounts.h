// Amounts as people read them.
#ifndef QX_AGENT_PLAN_AMOUNTS_H
#define QX_AGENT_PLAN_AMOUNTS_H

#include <cstdint>
#include <string>
#include <string_view>

namespace agent {

/// "512 bytes", "1.5 GiB".
std::string bytesText(long long bytes);
/// "1,234,567".
std::string countText(long long count);
/// An amount of a resource in its unit (host/resources.h): the former for bytes and KiB, the
/// latter for all else, or "unlimited".
std::string amountText(uint64_t amount, std::string_view unit);
/// "7 days", "1 day 2 hours", "90 seconds".
std::string periodText(long long seconds);

}  // namespace agent

#endif
