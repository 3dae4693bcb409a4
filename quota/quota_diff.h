// What separates two sets of quotas.
#ifndef QX_QUOTA_QUOTA_DIFF_H
#define QX_QUOTA_QUOTA_DIFF_H

#include "framework/api.h"
#include "quota/quotas.h"

namespace QuotaMgmt {

/// Empties both outputs; then `toSet` gets every wanted entry that is not in
/// `current` or differs there in any of its six values, and `toClear` every current
/// entry that is not wanted. No pointer may be null, and no output be an input.
QXL_API void quota_mkdiff(const Quotas* current, const Quotas* wanted, Quotas* toClear,
                          Quotas* toSet);

}  // namespace QuotaMgmt

#endif
