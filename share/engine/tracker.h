#ifndef QX_SHARE_ENGINE_TRACKER_H
#define QX_SHARE_ENGINE_TRACKER_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "share/engine/wire.h"

namespace engine {

// A process that gathers what has changed while no pass runs (docs/engine-protocol.md).
// It has nothing of the process that started it but these descriptors.
inline constexpr int kTrackerStarter = 0;  ///< a socket to the one that started it
inline constexpr int kTrackerEvents = 3;   ///< of openEvents()
inline constexpr int kTrackerAgent = 4;    ///< a pidfd: it ends when that process does

/// The option that makes the program a tracker. What follows is in TrackerSetup.
inline constexpr const char* kTrackOption = "--track-changes";

struct TrackerSetup {
  std::string folder;               ///< where its socket is; is there
  std::uint64_t mostPlaces = 0;     ///< it holds at most: handles, and names of entries
  std::vector<std::string> mounts;  ///< one of each file system that is watched
};

/// What a tracker is asked over its socket: four bytes of length, then this.
struct TrackerRequest {
  enum class Kind : unsigned {
    kTake = 0,  ///< what has changed since it was asked last; it begins anew then
    kKeep = 1   ///< a manifest is complete: stay, for the next pass
  };
  Kind kind = Kind::kTake;
  std::string identity;  ///< of a manifest: kTake by a new connection must name the kept one
  std::string note;      ///< kKeep: to be given back by the next answer
  std::chrono::seconds life{0};  ///< kKeep: how long at most

  bool operator==(const TrackerRequest&) const = default;
};
void putRequest(Buffer& to, const TrackerRequest& request);
/// Throws ProtocolError.
TrackerRequest takeRequest(std::string_view payload);

/// A directory has more names than this only if all of it is meant.
inline constexpr size_t kMostChangedNames = 4096;

/// Where something has changed.
struct Changed {
  std::string object;           ///< as readEvents gives it
  std::set<std::string> names;  ///< the entries of a directory; none: all of it

  bool operator==(const Changed&) const = default;
};

/// What it answers to kTake, with a length as well.
struct TrackerAnswer {
  bool complete = false;         ///< nothing was lost
  std::string note;              ///< of the last kKeep
  std::vector<dev_t> devices;    ///< file systems that are still watched
  std::vector<Changed> changes;  ///< each object once

  bool operator==(const TrackerAnswer&) const = default;
};
void putAnswer(Buffer& to, const TrackerAnswer& answer);
/// Throws ProtocolError.
TrackerAnswer takeAnswer(std::string_view payload);

/// One message with its length, or nothing when the other end has gone, what came is
/// too long, or nothing came for 20 s.
bool sendMessage(int socket, const Buffer& payload);
bool receiveMessage(int socket, Buffer& payload);

/// The socket in a folder where a tracker can be asked.
std::string trackerSocket(const std::string& folder);

/// Runs a tracker, in a process of its own, until its time is over, its socket is no
/// longer there, the process of kTrackerAgent has ended, or the one that it serves has
/// gone without saying kKeep. Returns the exit status.
int runTracker(const TrackerSetup& setup);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_TRACKER_H
