#ifndef QX_SHARE_ENGINE_MAPPED_FILES_H
#define QX_SHARE_ENGINE_MAPPED_FILES_H

#include <sys/types.h>

#include <string_view>
#include <utility>
#include <vector>

namespace engine {

/// The files that some process has mapped shared and writable, as device and inode:
/// a store into such memory leaves no trace in the file's times once the page has
/// been written to. Processes that cannot be looked at are passed over.
std::vector<std::pair<dev_t, ino_t>> writableMappings();

/// The pure half: those in the text of one /proc/PID/maps. A path in it is asked for
/// its device, as some file systems show another one there.
std::vector<std::pair<dev_t, ino_t>> writableMappingsIn(std::string_view maps);

/// The files that some process has open for writing just now.
std::vector<std::pair<dev_t, ino_t>> openForWriting();

}  // namespace engine

#endif  // QX_SHARE_ENGINE_MAPPED_FILES_H
