#ifndef QX_SHARE_ENGINE_BENEATH_H
#define QX_SHARE_ENGINE_BENEATH_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "host/fd.h"

namespace engine {

using host::Fd;

/// A directory tree that paths are looked up in without ever leaving it: no
/// ".." leads out, no symbolic link is followed, neither on the way nor at the
/// end, whoever changes the tree meanwhile. Threads may share one.
class Tree {
 public:
  /// The root itself may be named by a symbolic link. Check open() after it;
  /// errno says why not.
  explicit Tree(const std::string& root);

  bool open() const { return bool(root_); }
  int root() const { return root_.get(); }

  /// Opens a directory by its path below the root ("" is the root), of any
  /// length. Not open() and errno on failure: ELOOP or ENOTDIR where something
  /// on the way is no directory.
  Fd openDirectory(std::string_view path) const;

  /// The same, but makes what is not there, with mode 0700, and replaces what
  /// is no directory. Names are made one after the other, so another thread may
  /// do the same.
  Fd ensureDirectory(std::string_view path) const;

 private:
  Fd byComponents(std::string_view path, bool make) const;

  Fd root_;
};

/// Opens an entry of a directory, never following a symbolic link. O_NOATIME is
/// tried first for reading, as reading leaves no trace then.
Fd openEntry(int directory, const std::string& name, int flags, mode_t mode = 0);

/// Whether this errno of openDirectory means that there is no such directory now.
bool saysMissing(int error);

/// The absolute path of an open file or directory, for as long as it is not moved;
/// nothing where there is none, or it is as long as PATH_MAX.
std::optional<std::string> pathOf(int fd);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_BENEATH_H
