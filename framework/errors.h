// The framework's own error codes and the calling thread's last framework error.
#ifndef QX_FRAMEWORK_ERRORS_H
#define QX_FRAMEWORK_ERRORS_H

#include <string>

#include "framework/message.h"

namespace QXL {

/// One row of an error table: a code and its text, in which "%1" stands for the
/// argument. A table ends with a row whose code is 0 and whose text serves codes
/// that the table does not have.
struct QXLErrorRow {
  int code;
  const char* text;
};

/// The framework's table. The codes that the plug-in passes on are 400 (a request
/// that cannot be understood) and 414 (the caller lacks the right).
QXL_API extern const QXLErrorRow QXLErrors[];

/// Adds the table's error with that code to a message, its argument filled in.
QXL_API void addError(const boost::intrusive_ptr<QXLMessageIterator>& out, const QXLErrorRow* table,
                      int code, const std::string& argument);

/// The text of the last framework operation that failed on the calling thread;
/// empty when none has. Valid until the thread's next failing operation.
QXL_API std::string getErrorMessage();

/// True (non-zero) when something exists at the path. With flags 0 a symbolic link
/// counts for what it points to; with flags 1 for itself.
QXL_API int fentryExists(const std::string& path, int flags);

}  // namespace QXL

#endif
