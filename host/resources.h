// The resources that a container's configuration limits: one table, which everything that
// reads, computes, enforces or shows a limit goes through.
#ifndef QX_HOST_RESOURCES_H
#define QX_HOST_RESOURCES_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/container.h"

namespace host {

/// How a limit is told to the kernel.
enum class LimitScale {
  kCount,   ///< as it is; unlimited is "max"
  kBytes,   ///< as it is; unlimited is "max", and "-1" to the first generation
  kShares,  ///< of 1024, where the record has 1000 by default
  kWeight,  ///< of 100, where the record has 1000 by default
  kPtys,    ///< as it is; LXC limits the number of pseudo terminals itself
};

/// Who keeps a container to a limit.
enum class Holder {
  kNobody,      ///< today's kernels have no counterpart
  kKernel,      ///< control groups, or LXC where there is no controller
  kFileSystem,  ///< the container's own file system, where it has one
  kQuota,       ///< the quota tools
};

/// How the kernel holds a limit. Without a controller `v1` is LXC's own key.
struct KernelLimit {
  const char* controller = nullptr;
  const char* v1 = nullptr;  ///< key of LXC's configuration, first generation
  LimitScale v1Scale = LimitScale::kCount;
  const char* v2 = nullptr;  ///< the same, second generation
  LimitScale v2Scale = LimitScale::kCount;
};

struct Resource {
  const char* name;      ///< "numproc"; its record in a file is NUMPROC
  const char* unit;      ///< "" for a count, "pages", "bytes", "KiB", "units" or "seconds"
  const char* limits;    ///< what is limited, for people
  const char* computed;  ///< what the limit is computed from when it is not measured itself;
                         ///< "" for a fixed one
  Holder holder = Holder::kNobody;
  KernelLimit kernel = {};
};

/// All of them, in the order in which they are shown.
std::span<const Resource> resources();

/// The resource of a record such as "NUMPROC"; null when there is none.
const Resource* findResource(std::string_view record);

/// The record that holds a resource: its name in capitals.
std::string recordName(const Resource& resource);

/// "barrier:limit", or "limit" alone; "unlimited" is the greatest number.
struct ResourceValue {
  uint64_t barrier = 0;  ///< the limit, where no barrier is given
  uint64_t limit = 0;
  bool hasBarrier = false;
};
inline constexpr uint64_t kUnlimited = 9223372036854775807ULL;

/// Nothing when the text is malformed. Greater numbers count as unlimited.
std::optional<ResourceValue> parseResource(std::string_view text);

/// The container's record of this name, nothing when it has none. Throws Error
/// (kBadConfig) when it is malformed.
std::optional<ResourceValue> recordOf(const Container& container, const std::string& record);

}  // namespace host

#endif
