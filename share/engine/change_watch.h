#ifndef QX_SHARE_ENGINE_CHANGE_WATCH_H
#define QX_SHARE_ENGINE_CHANGE_WATCH_H

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "share/engine/changes_report.h"
#include "share/engine/manifest.h"
#include "share/engine/mounts_below.h"
#include "share/engine/tracking.h"
#include "share/engine/visits.h"

namespace engine {

/// How things are when it is asked what has changed, which the next time it is asked has
/// to know.
struct Moment {
  std::vector<MountBelow> mounts;
  std::vector<FileId> written;       ///< files that somebody has open for writing
  std::set<std::string> incomplete;  ///< directories that were not carried over wholly

  bool operator==(const Moment&) const = default;
};
void putMoment(Buffer& to, const Moment& moment);
/// Throws ProtocolError.
Moment takeMoment(std::string_view bytes);

/// What a sender knows of changes since an earlier walk. One thread uses it.
class ChangeWatch {
 public:
  /// folder: where the tracker is to be found; empty for no tracker. mostPlaces: see
  /// Tracking. The tree and the rules must outlive it.
  ChangeWatch(const Tree& tree, const Rules& rules, const std::string& folder,
              std::uint64_t mostPlaces);

  /// Once the rules are known and before there are threads: begins to watch, or goes on
  /// with what a pass has kept that made the manifest of this identity.
  void begin(const std::string& identity);

  /// To be called before each walk: asks what has changed, which will not be told again.
  void take();
  /// Which directories the walk is to visit, if what has changed between the last two
  /// take() is known; else, or without a manifest, nothing. before: of the walk that
  /// began with the first of the two. mapped: writableMappings() after the second.
  std::unique_ptr<Visits> plan(const Manifest* before, const std::vector<FileId>& mapped);

  /// How plan() came to what it said. The number of directories is not filled in.
  const ChangesReport& report() const { return report_; }

  /// The walk is done, and these directories are to be visited again.
  void setIncomplete(std::set<std::string> directories);
  /// The pass is done, and has made the manifest of this identity; another one comes
  /// within this time at most.
  void keep(const std::string& identity, std::chrono::seconds life);

 private:
  ChangesReport::How howKnown(const MountBelow& mount) const;
  ChangesKnown known() const;
  void makeReport(const ChangesKnown& known);

  const Tree& tree_;
  const Rules& rules_;
  std::string top_;
  Tracking tracking_;
  std::optional<TrackerAnswer> answer_;  ///< to the last take()
  Moment now_;                           ///< the last take()
  Moment then_;                          ///< the one before
  bool hasTaken_ = false;
  ChangesReport report_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_CHANGE_WATCH_H
