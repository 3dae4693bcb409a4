// Reading what the quota tools of a physical server print.
#ifndef QX_QUOTA_QUOTA_REPORT_H
#define QX_QUOTA_QUOTA_REPORT_H

#include <string>

#include "framework/api.h"
#include "quota/quotas.h"

namespace QuotaMgmt {

/// Adds the reports that "repquota -un" and "repquota -gn" printed, one after the
/// other, to the records: every id's limits, and the grace periods that a report's
/// heading names ("Block grace time: 7days; Inode grace time: 7days"). An id that
/// comes twice keeps its later line. Lines that do not fit are skipped or read as
/// far as their digits go; data before any heading is skipped. Returns 0. Both
/// records must be there.
QXL_API int limits_parse_phys(const std::string& report, Quotas* users, Quotas* groups);

/// Sets the records' grace periods from what "edquota -ut" and "edquota -gt" print
/// when their editor is cat. Returns 0. Both records must be there.
QXL_API int graces_parse_phys(const std::string& text, Quotas* users, Quotas* groups);

}  // namespace QuotaMgmt

#endif
