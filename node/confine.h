// Taking rights away from a process that runs programs which nobody vouches for.
#ifndef QX_NODE_CONFINE_H
#define QX_NODE_CONFINE_H

namespace node {

/// Leaves this process, and all that it will ever execute, with the capabilities that
/// editing a system's files as root needs, and takes from it for ever
/// - every other capability, and getting any back by executing a program;
/// - the system calls by which a program looks into the kernel or into other processes,
///   makes namespaces, mounts, loads code into the kernel, opens files by their handles,
///   uses the kernel's keys, or types on a terminal: they fail with EPERM or, where
///   programs know what to do without, ENOSYS. So do those of a 32-bit system.
/// Throws Error; the process is then fit for nothing but ending.
void confine();

}  // namespace node

#endif
