// What is on the other side of a descriptor, when that is a person.
#ifndef QX_AGENT_PROGRAMS_TERMINAL_H
#define QX_AGENT_PROGRAMS_TERMINAL_H

#include <cstddef>

namespace agent {

/// How wide the terminal is, and at least 40; 80 where it does not say. 0 for what is none.
size_t columnsOf(int fd);

}  // namespace agent

#endif
