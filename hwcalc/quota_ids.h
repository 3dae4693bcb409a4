// Which file systems have quotas, by their mount options.
#ifndef QX_HWCALC_QUOTA_IDS_H
#define QX_HWCALC_QUOTA_IDS_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "hwcalc/mount_table.h"

namespace hwcalc {

struct QuotaDevices {
  std::vector<std::string> devices;  ///< in the table's order, as often as it has them
  bool plainQuota = false;           ///< one has the option "quota" for its first
};

QuotaDevices findQuotaDevices(const std::vector<MountEntry>& table);

/// How many ids the container's quotas have to hold. The option "quota" does not
/// say that groups have quotas: as many groups as users are then expected.
std::uint32_t countQuotaIds(const std::set<unsigned>& users, const std::set<unsigned>& groups,
                            bool plainQuota);

}  // namespace hwcalc

#endif
