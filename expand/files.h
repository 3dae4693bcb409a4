// Whole files in and out of memory. Failures come back as errno values.
#ifndef QX_EXPAND_FILES_H
#define QX_EXPAND_FILES_H

#include <string>

#include "expand/export.h"

namespace Expand {

/// Reads a whole file, of any kind that can be read, into `out`. Returns 0, or
/// the errno value of what failed: with open `out` is untouched, with read it
/// holds what came before.
EXPAND_API int get_file(const std::string& path, std::string& out);

/// Writes `data` to a file.
///
/// flags  for open, beside O_WRONLY: say O_CREAT | O_TRUNC here
/// mode   permissions of a file that is created
///
/// Returns 0, or the errno value of the failing open, write or close; a part may
/// have been written then.
EXPAND_API int put_file(const std::string& path, const std::string& data, int flags, unsigned mode);

}  // namespace Expand

#endif  // QX_EXPAND_FILES_H
