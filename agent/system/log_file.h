// A file of what happens, beside what is shown of it.
#ifndef QX_AGENT_SYSTEM_LOG_FILE_H
#define QX_AGENT_SYSTEM_LOG_FILE_H

#include <string>

namespace agent {

/// Appends to this file from now on. One that is not there is made, with mode 0600: what
/// servers say is nobody else's. Throws std::runtime_error.
void openLogFile(const std::string& path);

/// Whether there is one.
bool hasLogFile();

/// Appends the lines of a text that is fit to be shown, each behind the time in UTC;
/// nothing without a file. What cannot be written is lost: no migration ends because of its
/// log. Safe from any thread.
void writeLog(const std::string& text);

}  // namespace agent

#endif
