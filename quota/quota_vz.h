// Disk quotas of a container, through the container quota tool qxquota.
//
// All functions return 0, or -1 with the last error (code -1) of the request that
// the calling thread serves. They throw nothing. They block while the tool runs.
#ifndef QX_QUOTA_QUOTA_VZ_H
#define QX_QUOTA_QUOTA_VZ_H

#include <string>

#include "framework/api.h"
#include "quota/quotas.h"

namespace QuotaMgmt {

/// Whether the container has disk quotas for its users and groups.
QXL_API int quota_is_enabled_vz(unsigned ctid, bool& on);

/// What "qxquota stat ID -t" prints; `out` is left alone when quota is off.
QXL_API int quota_get_vz(unsigned ctid, std::string& out);

/// Makes the container's quotas equal to the records, changing only what differs:
/// first clears the ids that are not wanted, then sets the others, then the grace
/// periods, users before groups. Fails with "Quota is not enabled" when there are
/// none. Stops at the first command that fails; what was done by then stays.
QXL_API int quota_put_vz(unsigned ctid, const Quotas& users, const Quotas& groups);

}  // namespace QuotaMgmt

#endif
