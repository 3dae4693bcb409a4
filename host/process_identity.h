// Telling one process from every other one that there was or will be.
#ifndef QX_HOST_PROCESS_IDENTITY_H
#define QX_HOST_PROCESS_IDENTITY_H

#include <sys/types.h>

#include <optional>
#include <string>

namespace host {

/// A pid alone is used again, after a boot even soon.
struct ProcessIdentity {
  std::string boot;  ///< the kernel's boot id
  pid_t pid = 0;
  unsigned long long startTime = 0;  ///< field 22 of /proc/PID/stat, clock ticks since boot

  bool operator==(const ProcessIdentity&) const = default;
};

/// The process that has this pid now; nothing when none has.
std::optional<ProcessIdentity> processOf(pid_t pid);

/// The calling process. Throws Error when /proc does not tell.
ProcessIdentity thisProcess();

/// Whether the process runs still. One that has ended and that its parent has not
/// asked for yet does not.
bool isAlive(const ProcessIdentity& process);

/// Whether the machine has not been booted since.
bool isOfThisBoot(const ProcessIdentity& process);

/// A word that is the process's own during one boot: "PID.STARTTIME".
std::string processWord(const ProcessIdentity& process);

}  // namespace host

#endif
