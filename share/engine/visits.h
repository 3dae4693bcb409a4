#ifndef QX_SHARE_ENGINE_VISITS_H
#define QX_SHARE_ENGINE_VISITS_H

#include <sys/types.h>

#include <mutex>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "share/engine/beneath.h"
#include "share/engine/manifest.h"
#include "share/engine/mounts_below.h"
#include "share/engine/rules.h"

namespace engine {

using FileId = std::pair<dev_t, ino_t>;

/// What is known of changes before a walk. Directories are paths below the top.
struct ChangesKnown {
  std::set<dev_t> devices;             ///< every change on these is known
  std::vector<std::string> elsewhere;  ///< but at and below these none is
  std::set<std::string> directories;   ///< something changed in them
  std::set<FileId> files;              ///< changed, by names that are not known
};

/// Which directories a walk goes to that knows what has changed, and does not go
/// through everything: those where something changed, those that are not the directory
/// that the manifest has there, and those where a file has a further name that it was
/// changed by elsewhere. Where nothing is known of changes, every one. Any thread may
/// use it.
class Visits {
 public:
  Visits(const Manifest& before, ChangesKnown known) : before_(before), known_(std::move(known)) {}

  /// Where to begin, what has vanished meanwhile left out. Then, each time that this
  /// is done, where to go on; at last nothing. One thread.
  std::vector<std::string> next(const Tree& tree, const Rules& rules);

  /// Whether this directory is to be gone through, as nobody has done so yet.
  bool claim(const std::string& directory);
  /// Whether every directory in it is to be visited.
  bool goesEverywhere(dev_t device, std::string_view directory) const;
  /// A file with several names has changed, or has lost one.
  void noteLinked(const FileId& file);
  /// A directory is no longer there.
  void noteGone(const std::string& directory);

  /// Puts what is known of all other directories into the manifest.
  void takeOver(ManifestWriter& after) const;
  std::uint64_t count() const;  ///< of directories that were gone through

 private:
  std::set<std::string> search();
  bool isGone(const std::unordered_set<std::string>& gone, std::string_view path) const;

  const Manifest& before_;
  const ChangesKnown known_;
  bool begun_ = false;
  std::set<FileId> searched_;

  mutable std::mutex mutex_;
  std::unordered_set<std::string> claimed_;
  std::unordered_set<std::string> gone_;
  std::unordered_set<std::string> newlyGone_;
  std::set<FileId> linked_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_VISITS_H
