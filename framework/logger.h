// The agent's log.
#ifndef QX_FRAMEWORK_LOGGER_H
#define QX_FRAMEWORK_LOGGER_H

#include "framework/api.h"

namespace QXL {

/// Level: 0 error, 1 warning, 2 notice, 3 information, 4 and above debugging. The
/// plug-in's name, the source and the function say where a line comes from. Safe
/// from any thread.
QXL_API void logMessage(int level, const char* plugin, const char* source, const char* function,
                        const char* format, ...) __attribute__((format(printf, 5, 6)));

}  // namespace QXL

#endif
