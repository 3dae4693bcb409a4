// Reading and writing small files, and looking into a container's tree.
#ifndef QX_HOST_FILE_H
#define QX_HOST_FILE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/fd.h"

namespace host {

/// The whole content of a file, nothing when it cannot be read (errno tells).
std::optional<std::string> readFile(const std::string& path);

/// Writes all of `data`; false with errno set when that fails.
bool writeAll(int fd, std::string_view data);

/// Replaces the file `path` by one with this content and mode, at once: a
/// reader sees the old file or the new one. Throws Error. The data is not
/// forced to disk.
void replaceFile(const std::string& path, std::string_view content, mode_t mode);

/// The same, and the data is on the disk when it returns.
void replaceFileDurably(const std::string& path, std::string_view content, mode_t mode);

/// Has everything of the file system that `path` is on written to the disk, and waits for
/// it. Throws Error, also when something could not be written since it was last asked
/// (syncfs(2), Linux 5.8).
void syncFileSystem(const std::string& path);

/// Whether there is a directory (symbolic links followed) at `path`.
bool isDirectory(const std::string& path);
/// Whether there is anything at `path`, a dangling symbolic link included.
bool exists(const std::string& path);

/// The names in a directory, sorted, without "." and "..". Throws Error.
std::vector<std::string> listDirectory(const std::string& path);

/// Makes a directory and its missing parents, all with mode 0755. Throws Error.
void makeDirectories(const std::string& path);

/// Opens `path` of the container whose tree is `rootFd`, with open flags
/// `flags`; symbolic links, absolute ones too, lead to where they lead inside
/// the container and never out of it. Invalid with errno set on failure.
Fd openInRoot(int rootFd, const char* path, int flags);

/// Opens a regular file or a directory for reading that O_PATH has found, with more of
/// open(2)'s `flags`. Anything else is not opened: what that does to a device, whoever put it
/// there has chosen. Invalid then, or on failure.
Fd openFound(const Fd& found, int flags);

/// The first bytes, `most` at most, of a file found like that. Empty when there is none, or
/// something else than a regular file has its name (openFound).
std::string readFileInRoot(int rootFd, const char* path, size_t most);

}  // namespace host

#endif
