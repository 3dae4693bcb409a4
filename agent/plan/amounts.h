// Amounts as people read them.
#ifndef QX_AGENT_PLAN_AMOUNTS_H
#define QX_AGENT_PLAN_AMOUNTS_H

#include <string>

namespace agent {

/// "512 bytes", "1.5 GiB".
std::string bytesText(long long bytes);
/// "1,234,567".
std::string countText(long long count);

}  // namespace agent

#endif
