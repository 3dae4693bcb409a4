// Reading what the container quota tool prints.
#ifndef QX_QUOTA_QUOTA_VZ_STAT_H
#define QX_QUOTA_QUOTA_VZ_STAT_H

#include <string>

#include "framework/api.h"
#include "quota/quotas.h"

namespace QuotaMgmt {

/// Adds the output of "qxquota stat ID -t" to the records: grace periods from the
/// section that a line with "User/group grace times" announces, limits from the one
/// that "User/group objects" announces. Other lines, and lines of a section that do
/// not have its fields, are skipped. Returns 0. Both records must be there.
QXL_API int quota_parse_vz(const std::string& text, Quotas* users, Quotas* groups);

}  // namespace QuotaMgmt

#endif
