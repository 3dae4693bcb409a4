#ifndef QX_SHARE_ENGINE_FILE_EVENTS_H
#define QX_SHARE_ENGINE_FILE_EVENTS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/fd.h"

namespace engine {

// What the kernel tells of changes on whole file systems: fanotify(7) with
// FAN_REPORT_DFID_NAME and FAN_REPORT_FID, Linux 5.9. It tells the directory in which
// something changed, and the name of what has; where the kernel does not know them, as for
// a file that was opened by its handle, the file.

/// One of those, in few bytes: whether it is a directory, the file system's id, and
/// the handle, as in open_by_handle_at(2).
struct ChangedObject {
  bool directory = false;
  std::string_view fsid;    ///< eight bytes, as in statfs(2)
  std::string_view handle;  ///< a struct file_handle

  /// Takes apart the bytes that readEvents gave. They must outlive it. Throws
  /// ProtocolError for anything else.
  static ChangedObject from(std::string_view bytes);
};

/// A group of events, close-on-exec, whose queue has no limit and whose reads do not
/// wait. Not open() where there is no such thing, or it is not allowed.
host::Fd openEvents();

/// Has the group hear of the whole file system at a path. False and errno if it cannot.
bool watchFileSystem(int events, const std::string& path);

/// The file systems that the group still hears of, by device number: one that was
/// unmounted everywhere is no longer among them.
std::vector<dev_t> watchedFileSystems(int events);
/// The pure half: those in the text of a /proc/PID/fdinfo/FD.
std::vector<dev_t> watchedFileSystemsIn(std::string_view information);

/// The bytes of an object, and what has changed in it if it is a directory: the entry of
/// this name, or, without one, any.
using OnChange = std::function<void(std::string_view object, std::string_view name)>;

/// What one read(2) of the group gave. Calls `changed` for each event. False if the kernel
/// has dropped some, or says something that is not understood.
bool readEvents(std::string_view bytes, const OnChange& changed);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_FILE_EVENTS_H
