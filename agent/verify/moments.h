// When what is compared was copied.
#ifndef QX_AGENT_VERIFY_MOMENTS_H
#define QX_AGENT_VERIFY_MOMENTS_H

#include <cstdint>
#include <limits>

namespace agent {

/// Moments that differences are judged by, seconds of the machine that they are of.
struct Moments {
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  std::int64_t copied = kNever;    ///< the server's files were read from here on, for the last time
  std::int64_t finished = kNever;  ///< the container was the administrator's from here on
};

}  // namespace agent

#endif
