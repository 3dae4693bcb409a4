// The lock file of a container, shared with everything else on the host that
// works on containers.
#ifndef QX_HOST_LOCK_H
#define QX_HOST_LOCK_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace host {

/// The pid on the first line of a lock file's content; nothing when there is
/// no positive number, in which case the lock counts as stale.
std::optional<pid_t> parseLockHolder(std::string_view content);

/// Who holds the lock file LOCKDIR/ID.lck, such as "process 12 (creating)"; nothing when
/// no live process does.
std::optional<std::string> lockHolder(const std::string& lockDir, unsigned id);
/// Makes the directory of the lock files, for root only: whoever can open it can lock it,
/// and hold everybody up. One that exists may let others look, but not write, and must be
/// this user's; a symbolic link is none. Throws Error (kBadConfig when it is not).
void makeLockDirectory(const std::string& lockDir);

/// Holds a container's lock file LOCKDIR/ID.lck, "PID\nSTATUS\n", from
/// construction to destruction. The file appears at once with its content: a
/// temporary file is written and hard-linked to the name. A lock whose process
/// is gone is removed and taken.
class ContainerLock {
 public:
  /// Takes the lock and makes the lock directory if need be. `status` is the
  /// word that tells others what is going on. Throws Error: kLocked, naming the
  /// holder, when a live process has the lock; also when somebody has the directory
  /// locked for ten seconds. What makeLockDirectory throws.
  ContainerLock(const std::string& lockDir, unsigned id, std::string_view status);
  ~ContainerLock();
  ContainerLock(const ContainerLock&) = delete;
  ContainerLock& operator=(const ContainerLock&) = delete;

 private:
  std::string path_;
};

}  // namespace host

#endif
