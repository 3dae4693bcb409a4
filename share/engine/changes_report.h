#ifndef QX_SHARE_ENGINE_CHANGES_REPORT_H
#define QX_SHARE_ENGINE_CHANGES_REPORT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "share/engine/wire.h"

namespace engine {

/// How a pass found out what had changed: for the other end, and for people there.
struct ChangesReport {
  enum class How : unsigned {
    kTracked = 0,      ///< the kernel told
    kUnwatchable = 1,  ///< the kernel tells nothing of such a file system
    kTooMuch = 2,      ///< more has changed than is held
    kUnwatched = 3,    ///< nothing was there to hear it
    kMounted = 4       ///< it was mounted since
  };
  struct Place {
    std::string path;  ///< below the top
    std::string type;  ///< of the file system
    How how = How::kTracked;

    bool operator==(const Place&) const = default;
  };
  std::vector<Place> places;
  std::uint64_t further = 0;      ///< places that are not among them
  std::uint64_t directories = 0;  ///< that were gone through

  bool operator==(const ChangesReport&) const = default;
};

/// Beyond the bounds, places are only counted.
void putReport(Buffer& to, const ChangesReport& report);
/// Throws ProtocolError.
ChangesReport takeReport(std::string_view payload);

/// One line of bounded length with nothing in it that is not to be shown: "changes on
/// /: tracked; on /srv (nfs4): looked for everywhere, as the file system cannot be
/// watched; and 3 more; 12 directories visited".
std::string textOf(const ChangesReport& report);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_CHANGES_REPORT_H
