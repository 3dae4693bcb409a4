// The time of day, as it stands in files.
#ifndef QX_HOST_CLOCK_H
#define QX_HOST_CLOCK_H

#include <string>

namespace host {

/// Now, in UTC: "2026-11-21T22:21:25Z".
std::string utcNow();

}  // namespace host

#endif
