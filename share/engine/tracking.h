#ifndef QX_SHARE_ENGINE_TRACKING_H
#define QX_SHARE_ENGINE_TRACKING_H

#include <optional>
#include <string>
#include <vector>

#include "host/fd.h"
#include "share/engine/mounts_below.h"
#include "share/engine/tracker.h"

namespace engine {

/// The sender's end of a tracker (tracker.h), which belongs to one folder and outlives
/// the process of a pass. What goes wrong with it means that there is none. One thread
/// uses it.
class Tracking {
 public:
  /// The folder must be there, or made by the time start() is called. mostPlaces: how
  /// many changed places are held; 0 for no tracker at all.
  Tracking(std::string folder, std::uint64_t mostPlaces)
      : folder_(std::move(folder)), mostPlaces_(mostPlaces) {}

  /// Starts a tracker of these mounts in the tree at `top`, which takes the place of an
  /// older one. To be called before there are threads, as it forks.
  void start(const std::string& top, const std::vector<MountBelow>& mounts);
  /// Goes on with the one that was told to keep(identity).
  void resume(const std::string& identity);

  /// Whether there is one, as far as is known.
  explicit operator bool() const { return bool(socket_); }

  /// What has changed since it was taken last, and the note of the last keep().
  std::optional<TrackerAnswer> take();

  /// The pass has ended well: the tracker stays, as long as this at most. Else it ends
  /// with this process.
  void keep(const std::string& identity, const std::string& note, std::chrono::seconds life);

 private:
  bool ask(const TrackerRequest& request);

  std::string folder_;
  std::uint64_t mostPlaces_;
  host::Fd socket_;
  std::string identity_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_TRACKING_H
