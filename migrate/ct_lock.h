// The lock of a container id: a file that names the process that works on it. It
// is the only guard against two migrations, or the host's own tools, working on
// one container at once.
#ifndef QX_MIGRATE_CT_LOCK_H
#define QX_MIGRATE_CT_LOCK_H

#include <string>

#include "framework/request.h"

namespace P2V {

/// Fills in the lock file's path; leaves it empty when the host's settings do not
/// tell the lock directory.
void getLockFile(unsigned int veid, std::string& path);

/// Takes the lock, writing the process id and the status word into its file. A lock
/// whose process is gone is removed and taken. Returns 0, or -1 with the error
/// recorded in the context. May sleep, a second and a half at most.
int lockCT(unsigned int veid, const char* status,
           const boost::intrusive_ptr<QXL::QXLRequestContextPrototype>& context);

/// Removes the lock file, whoever made it. Returns 0.
int unlockCT(unsigned int veid);

/// The process id in a lock file: 0 when it holds no number, -1 when the file could
/// not be opened.
int readLockPid(const std::string& path);

}  // namespace P2V

#endif
