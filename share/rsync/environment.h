#ifndef QX_SHARE_RSYNC_ENVIRONMENT_H
#define QX_SHARE_RSYNC_ENVIRONMENT_H

namespace qxrsync {

/// Whether this variable of the environment says `yes`, as it also does when it is not set
/// or empty. Throws Failure (status 1) if it says anything else than that or `no`.
bool environmentSays(const char* variable, const char* yes, const char* no);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_ENVIRONMENT_H
