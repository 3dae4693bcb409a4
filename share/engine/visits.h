#ifndef QX_SHARE_ENGINE_VISITS_H
#define QX_SHARE_ENGINE_VISITS_H

#include <sys/types.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "share/engine/beneath.h"
#include "share/engine/manifest.h"
#include "share/engine/mounts_below.h"
#include "share/engine/rules.h"
#include "share/engine/work_queue.h"

namespace engine {

using FileId = std::pair<dev_t, ino_t>;

/// Directories, and of each the names of the entries that are meant; without any, all.
using Places = std::map<std::string, std::set<std::string>>;
void addPlace(Places& places, const std::string& directory, const std::set<std::string>& names);

/// What is known of changes before a walk. Directories are paths below the top.
struct ChangesKnown {
  std::set<dev_t> devices;             ///< every change on these is known
  std::vector<std::string> elsewhere;  ///< but at and below these none is
  Places directories;                  ///< something changed in them
  std::set<FileId> files;              ///< changed, by names that are not known
};

/// Which directories a walk goes to that knows what has changed, and does not go
/// through everything: those where something changed, those that are not the directory
/// that the manifest has there, and those where a file has a further name that it was
/// changed by elsewhere. In a directory that is the one that the manifest has it looks at
/// the entries with names that are known to have changed. Where nothing is known of
/// changes, at everything. Any thread may use it.
class Visits {
 public:
  Visits(const Manifest& before, ChangesKnown known) : before_(before), known_(std::move(known)) {}

  /// Where to begin, what has vanished meanwhile left out. Then, each time that this
  /// is done, where to go on; at last nothing. One thread.
  std::vector<Job> next(const Tree& tree, const Rules& rules);

  /// Whether this directory is to be gone through, as nobody has done so yet. Where
  /// somebody may still be looking at some entries, next() comes back to it.
  bool claim(const std::string& directory);
  /// The same for a directory of which a job names some entries: all of it has to be looked
  /// at instead.
  bool claimAll(const Job& job);
  /// The entries that were looked at before the directory was claimed.
  std::set<std::string> seen(const std::string& directory) const;
  /// Whether every directory in it is to be visited.
  bool goesEverywhere(dev_t device, std::string_view directory) const;
  /// A file with several names has changed, or has lost one.
  void noteLinked(const FileId& file);
  /// A directory is no longer there.
  void noteGone(const std::string& directory);

  /// Puts what is known of everything else into the manifest.
  void takeOver(ManifestWriter& after) const;
  std::uint64_t count() const;  ///< of directories that were visited

 private:
  struct Claim {
    bool whole = false;
    std::set<std::string> names;  ///< else, or before it was
    unsigned round = 0;           ///< in which the last of them were handed out
  };

  static void addUnknown(const Tree& tree, const std::string& path, Places& places);
  void search(Places& found);
  bool claimNames(const std::string& directory, Job& job);
  bool isGone(const std::unordered_set<std::string>& gone, std::string_view path) const;

  const Manifest& before_;
  const ChangesKnown known_;
  bool begun_ = false;
  std::set<FileId> searched_;

  mutable std::mutex mutex_;
  std::unordered_map<std::string, Claim> claimed_;
  unsigned round_ = 0;
  std::set<std::string> later_;  ///< that are to be gone through in the next round
  std::unordered_set<std::string> gone_;
  std::unordered_set<std::string> newlyGone_;
  std::set<FileId> linked_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_VISITS_H
