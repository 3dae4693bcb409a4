#ifndef QX_SHARE_ENGINE_MARKER_H
#define QX_SHARE_ENGINE_MARKER_H

#include <string>

#include "share/engine/beneath.h"

namespace engine {

/// Remembers, beside a directory tree, which manifest tells what is in it: a small
/// file in a folder of root's, by the tree's device, inode and time of birth. A
/// tree on a file system that knows no time of birth is not remembered, as another
/// one might have taken its place.
class Marker {
 public:
  /// An empty folder: nothing is remembered.
  Marker(const std::string& folder, const Tree& tree);

  /// The identity that was put last, which is forgotten; empty if there is none.
  std::string take() const;
  /// What goes wrong means that it is not remembered.
  void put(const std::string& identity) const;

 private:
  std::string folder_;
  std::string name_;   ///< of the file; empty if the tree cannot be remembered
  std::string birth_;  ///< the first line in it
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_MARKER_H
