#ifndef QX_SHARE_ENGINE_SENDER_H
#define QX_SHARE_ENGINE_SENDER_H

#include <cstdint>
#include <string>

namespace engine {

struct SenderSetup {
  int in = -1;   ///< the channel; not owned
  int out = -1;  ///<
  std::string root;
  bool accessLists = false;          ///< what both ends can hold
  bool attributes = false;           ///<
  std::uint64_t bytesPerSecond = 0;  ///< at most; 0 for no limit
  std::string folder;                ///< where a manifest is kept; empty for none
  std::uint64_t trackedPlaces = 0;   ///< at most so many changes are kept track of
};

/// Sends a directory tree over a channel whose other end receives it. Runs until
/// the other end has everything. Returns the exit status: 0, or 23 when something
/// could not be carried over, and was named. Throws Failure, and ProtocolError
/// when the other end is not to be understood; then threads may still run, so the
/// process is to end without ado.
int runSender(const SenderSetup& setup);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_SENDER_H
