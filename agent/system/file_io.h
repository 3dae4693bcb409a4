// Whole files.
#ifndef QX_AGENT_SYSTEM_FILE_IO_H
#define QX_AGENT_SYSTEM_FILE_IO_H

#include <sys/types.h>

#include <string>

namespace agent {

// Both return 0, or -1 with the path and the reason in QXL::getErrorMessage() and
// errno set.
int readFile(const std::string& path, std::string& text);

// The file appears whole or not at all: a new file takes the old one's place.
int writeFileAtomically(const std::string& path, const std::string& text, mode_t mode);

}  // namespace agent

#endif
