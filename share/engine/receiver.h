#ifndef QX_SHARE_ENGINE_RECEIVER_H
#define QX_SHARE_ENGINE_RECEIVER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/copy_pace.h"

namespace engine {

class Stream;

struct ReceiverSetup {
  Stream* channel = nullptr;  ///< not owned
  std::string root;           ///< exists
  std::vector<std::string> patterns;
  bool accessLists = false;  ///< what both ends can hold
  bool attributes = false;   ///<
  bool keepsNanoseconds = true;
  host::CopyPace pace;  ///< asked of the sender
  std::string folder;   ///< where is kept which manifest tells what there is; empty for none
};

/// How far it is.
struct Reached {
  std::uint64_t bytesDone = 0;
  std::uint64_t bytesKnown = 0;  ///< a share of what there is, until all is known
};

/// Fills a directory from the other end of a channel, which sends.
class Receiver {
 public:
  explicit Receiver(const ReceiverSetup& setup);
  ~Receiver();

  /// Runs until the directory is as the other end has it. Returns the exit status:
  /// 0, or 23 when something could not be carried over, and was named. Throws
  /// Failure, and ProtocolError when the other end is not to be understood; after
  /// abandon() then, and threads may still run, so the process is to end without
  /// ado.
  int run();

  /// Stops writing, and removes files that are not whole. Any thread may call it.
  void abandon();
  /// Any thread may call it.
  Reached reached() const;

 private:
  class Work;
  std::unique_ptr<Work> work_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_RECEIVER_H
