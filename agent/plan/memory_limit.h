// The memory limit of a container whose server is too large for 32 bits.
#ifndef QX_AGENT_MEMORY_LIMIT_H
#define QX_AGENT_MEMORY_LIMIT_H

#include <optional>
#include <set>

#include "framework/env_config.h"

namespace agent {

struct MemoryLimitCorrection {
  long long computed;   ///< bytes, as the calculator gave it
  long long corrected;  ///< bytes
};

/// Replaces "slmmemorylimit" among a calculator's records where its formula wrapped.
///
/// The formula adds products of the other records in 32-bit integers:
///
///     kmemsize + 2 * tcpsndbuf + othersockbuf + 262144
///       + pageSize * privvmpages + pageSize * lockedpages
///
/// (the limits of each; bytes, and pages of `pageSize` bytes), times `procScale`. A
/// server with more than 2 GiB of private memory makes one of the products wrap: the
/// result is negative, or far below what the server uses. When a product takes more
/// than 31 bits, the same sum is made in 64 bits and becomes both barrier and limit.
///
/// Returns both figures, or nothing when no product wrapped or when one of the records
/// is missing or negative; `records` is unchanged then.
std::optional<MemoryLimitCorrection> correctMemoryLimit(std::set<QXL::QXLQoS>& records,
                                                        long long pageSize, double procScale);

}  // namespace agent

#endif
