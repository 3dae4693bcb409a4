// The quota dump: the text in which a server's quotas travel to the node.
//
// It is a header, an empty line, and the raw output of the server's quota tools in
// two sections back to back:
//   limits OFFSET LENGTH
//   graces OFFSET LENGTH
// Numbers are decimal bytes, offsets from the first byte after the empty line.
#ifndef QX_QUOTA_QUOTA_DUMP_H
#define QX_QUOTA_QUOTA_DUMP_H

#include <string>

#include "framework/api.h"

namespace QuotaMgmt {

QXL_API std::string quota_dump_write(const std::string& limits, const std::string& graces);

/// Cuts the sections out of a dump; a section that the header does not name stays
/// as it is. Returns an empty text, or why the dump was refused, for the request's
/// error. Throws std::out_of_range for a section that begins after the dump's end;
/// one that only ends there is cut short.
QXL_API std::string quota_dump_read(const std::string& dump, std::string& limits,
                                    std::string& graces);

}  // namespace QuotaMgmt

#endif
