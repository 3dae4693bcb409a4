#include "share/engine/file_handles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstring>

namespace engine {

std::optional<OpenMount> openMount(const std::string& path) {
  OpenMount mount;
  mount.directory = host::Fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct statfs status {};
  if (!mount.directory || ::fstatfs(mount.directory.get(), &status) != 0) return std::nullopt;
  mount.fsid.resize(sizeof status.f_fsid);
  std::memcpy(mount.fsid.data(), &status.f_fsid, sizeof status.f_fsid);
  return mount;
}

host::Fd openObject(const OpenMount& mount, const ChangedObject& object) {
  // The copy is where the struct may be.
  alignas(file_handle) char bytes[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
  object.handle.copy(bytes, sizeof bytes);
  return host::Fd(::open_by_handle_at(mount.directory.get(), reinterpret_cast<file_handle*>(bytes),
                                      O_PATH | O_CLOEXEC));
}

bool isRemoved(const host::Fd& opened) {
  if (!opened) return errno == ESTALE || errno == ENOENT;
  struct stat status {};
  return ::fstat(opened.get(), &status) == 0 && status.st_nlink == 0;
}

}  // namespace engine
