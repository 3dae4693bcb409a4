#ifndef QX_SHARE_ENGINE_FILE_HANDLES_H
#define QX_SHARE_ENGINE_FILE_HANDLES_H

#include <sys/types.h>

#include <optional>
#include <string>

#include "host/fd.h"
#include "share/engine/file_events.h"

namespace engine {

/// A mount by which objects of its file system can be opened. Not to be held for long:
/// what is open cannot be unmounted.
struct OpenMount {
  host::Fd directory;
  std::string fsid;  ///< as ChangedObject has it
};

/// Nothing if it cannot be opened.
std::optional<OpenMount> openMount(const std::string& path);

/// Opens an object of the mount's file system, for its path and stat(2) only. Not open()
/// and errno on failure.
host::Fd openObject(const OpenMount& mount, const ChangedObject& object);

/// Whether what openObject returned, errno being as it was left, says that the object is
/// no longer there. One whose last name has gone, but which somebody has open, is not.
bool isRemoved(const host::Fd& opened);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_FILE_HANDLES_H
