// The time of day, as it stands in files.
#ifndef QX_HOST_CLOCK_H
#define QX_HOST_CLOCK_H

#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// Now, in UTC: "2026-11-21T22:21:25Z".
std::string utcNow();

/// The moment that such a text means, seconds since 1970; nothing for any other text.
std::optional<std::int64_t> parseUtc(const std::string& text);

}  // namespace host

#endif
