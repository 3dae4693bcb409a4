// Grace periods as the quota tools print them.
#ifndef QX_QUOTA_GRACE_H
#define QX_QUOTA_GRACE_H

#include "framework/api.h"

namespace QuotaMgmt {

/// A grace period in seconds: "7days", "23:59" (hours and minutes), or a plain
/// number of seconds. Blanks alone, and text without a number, are 0. The unit must
/// follow the number at once; an unknown one counts as seconds.
QXL_API unsigned long long grace_atoll(const char* text);

}  // namespace QuotaMgmt

#endif
