#ifndef QX_SHARE_ENGINE_SENDER_H
#define QX_SHARE_ENGINE_SENDER_H

#include <cstdint>
#include <string>

#include "host/copy_pace.h"

namespace engine {

class Stream;

struct SenderSetup {
  Stream* channel = nullptr;  ///< not owned
  std::string root;
  bool accessLists = false;         ///< what both ends can hold
  bool attributes = false;          ///<
  bool compression = true;          ///< where the channel is slow
  host::CopyPace pace;              ///< at most, whatever the other end asks for
  std::string folder;               ///< where a manifest is kept; empty for none
  std::uint64_t trackedPlaces = 0;  ///< at most so many changes are kept track of
};

/// Sends a directory tree over a channel whose other end receives it. Runs until
/// the other end has everything. Returns the exit status: 0, or 23 when something
/// could not be carried over, and was named. Throws Failure, and ProtocolError
/// when the other end is not to be understood; then threads may still run, so the
/// process is to end without ado.
int runSender(const SenderSetup& setup);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_SENDER_H
