// Files that commands are told to write.
#ifndef QX_AGENT_PROGRAMS_OUTPUT_FILE_H
#define QX_AGENT_PROGRAMS_OUTPUT_FILE_H

#include <string>

namespace agent {

/// Whether nothing but a file would be replaced there, if anything: a device or a link
/// would not survive it. Complains otherwise, in the name of the option.
bool canReplace(const char* option, const std::string& path);

}  // namespace agent

#endif
