// Taking rights away from a process that runs programs which nobody vouches for.
#ifndef QX_NODE_CONFINE_H
#define QX_NODE_CONFINE_H

namespace node {

/// host::confine with the capabilities that editing a system's files as root needs.
/// Throws Error; the process is then fit for nothing but ending.
void confine();

}  // namespace node

#endif
