// Disk quotas of a physical server, through its own quota tools.
//
// All functions return 0, or -1 with the last error (code -1) of the request that
// the calling thread serves. They throw nothing. They block while a tool runs.
#ifndef QX_QUOTA_QUOTA_PHYS_H
#define QX_QUOTA_QUOTA_PHYS_H

#include <string>

#include "framework/api.h"
#include "quota/quotas.h"

namespace QuotaMgmt {

/// Which kinds of quota the mount table says are on.
///
/// partition   a device or a mount point
/// usr, grp    set to true for a kind that is on, otherwise left alone: start false
/// mountPoint  receives where the partition is mounted
///
/// The partition is found by device and inode numbers, so any path to it will do.
QXL_API int quota_is_enabled_phys(const char* partition, bool& usr, bool& grp,
                                  std::string* mountPoint);

/// The raw reports of the kinds that are on, users before groups: of limits, and of
/// grace periods. Both stay empty when no kind is on.
QXL_API int quota_get_phys(const char* partition, std::string& limits, std::string& graces);

/// Makes the partition's quotas equal to the records, changing only what differs.
/// Stops at the first command that fails; what was done by then stays.
QXL_API int quota_put_phys(const char* partition, const Quotas& users, const Quotas& groups);

}  // namespace QuotaMgmt

#endif
