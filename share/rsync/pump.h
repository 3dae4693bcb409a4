#ifndef QX_SHARE_RSYNC_PUMP_H
#define QX_SHARE_RSYNC_PUMP_H

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <vector>

#include "share/rsync/descriptor.h"

namespace qxrsync {

/// Moves one direction of a byte stream from a source to a sink, never waiting:
/// the owner polls. Two pumps in one loop are independent of each other, which
/// is what keeps a full direction from stopping the other one.
///
/// Bytes are spliced: directly if either side is a pipe, through a pipe of the
/// pump's own between two sockets, so their pages are not copied. Where a side
/// cannot be spliced they are read and written.
///
/// Neither descriptor is owned. Both are made non-blocking.
class Pump {
 public:
  Pump(int source, int sink);

  /// Moves what can be moved now, up to some megabytes, so that the other pump
  /// gets its turn.
  void move();

  /// Finished: the source has ended and all of it has been passed on, or the
  /// sink takes no more.
  bool done() const { return done_; }

  /// What to wait for before move() can do something again: one side and its
  /// event. No descriptor (-1, which poll passes over) when there is nothing to
  /// wait for: done, or stopped only because it had its turn.
  pollfd wanted() const;
  bool hadEnough() const { return hadEnough_; }

  /// Bytes are at hand: read from the source and not yet passed on, or waiting
  /// in it.
  bool hasPending() const;

 private:
  enum class Way { kDirect, kThroughPipe, kCopy };
  enum class Step { kMoved, kWouldBlock, kEnded, kUnsupported };

  static Step outcome(ssize_t count);
  Step step();
  Step spliceDirectly();
  Step spliceThroughPipe();
  Step copy();
  void changeToCopying();

  int source_;
  int sink_;
  Way way_;
  host::FdPair between_;        ///< Way::kThroughPipe
  std::vector<char> buffer_;    ///< Way::kCopy
  size_t heldFrom_ = 0;         ///< first byte of buffer_ not yet written
  size_t held_ = 0;             ///< bytes in between_ or buffer_
  bool waitForSink_ = false;    ///< which side to wait for
  bool movedSinceWait_ = true;  ///< Way::kDirect
  bool hadEnough_ = false;
  bool done_ = false;
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_PUMP_H
