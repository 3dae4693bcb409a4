#ifndef QX_SHARE_RSYNC_PACE_H
#define QX_SHARE_RSYNC_PACE_H

#include "host/copy_pace.h"

namespace qxrsync {

/// What the environment says. Throws Failure (status 1) that names a bad value.
host::CopyPace wantedPace();

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_PACE_H
