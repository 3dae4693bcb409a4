// Taking rights away from a process that nobody vouches for.
#ifndef QX_HOST_CONFINE_H
#define QX_HOST_CONFINE_H

#include <span>

namespace host {

/// What the confined process will be used for.
enum class Use {
  kPrograms,  ///< running programs of a copied system, whatever they may be
  kFiles,     ///< reading and writing files and streams that it has or can open, and no more
};

/// Leaves this process, and all that it will ever execute, with those of these
/// capabilities that it has, and
/// takes from it for ever
/// - every other capability, and getting any back by executing a program;
/// - the system calls by which a program looks into the kernel or into other processes,
///   makes namespaces, mounts, loads code into the kernel, opens files by their handles,
///   uses the kernel's keys, or types on a terminal: they fail with EPERM or, where
///   programs know what to do without, ENOSYS. So do those of a 32-bit system.
/// - with kFiles also sockets other than UNIX ones, operations on devices and file
///   systems (ioctl, but for what tells a terminal from a file), declaring memory broken,
///   and every call of a 32-bit system. What is left of CAP_SYS_ADMIN then is attributes
///   of files that only root may see.
/// Throws Error; the process is then fit for nothing but ending.
void confine(std::span<const int> capabilities, Use use);

}  // namespace host

#endif
