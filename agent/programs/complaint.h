// What qxmigrate says on standard error.
#ifndef QX_AGENT_PROGRAMS_COMPLAINT_H
#define QX_AGENT_PROGRAMS_COMPLAINT_H

#include <string>

namespace agent {

/// Writes "qxmigrate: TEXT" and a line end. Whatever the text holds, it cannot command a
/// terminal, and lines of it but the first are indented. On a terminal, lines are broken
/// between words.
void complain(const std::string& text);

/// The lines that complain writes, for a terminal of so many columns; 0 for what is none.
std::string complaintText(const std::string& text, size_t columns);

}  // namespace agent

#endif
