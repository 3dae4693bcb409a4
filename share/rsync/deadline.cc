#include "share/rsync/deadline.h"

#include <algorithm>
#include <cstdint>

namespace qxrsync {

int Deadline::left() const {
  const auto span = std::chrono::duration_cast<std::chrono::milliseconds>(
      end_ - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(0, span.count()));
}

}  // namespace qxrsync
