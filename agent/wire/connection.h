// A connection to another process: frames both ways, and a heartbeat that tells
// whether anyone is there.
#ifndef QX_AGENT_WIRE_CONNECTION_H
#define QX_AGENT_WIRE_CONNECTION_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/wire/frames.h"
#include "host/fd.h"

namespace agent {

/// How the heartbeat goes.
struct HeartbeatTimes {
  std::chrono::milliseconds beat{10000};  ///< a frame is sent at least this often
  std::chrono::milliseconds dead{45000};  ///< without a frame for so long the peer is dead
};

/// Reads frames on a thread of its own. Handlers are called on that thread;
/// onLost is called once, last, with the reason (empty when the peer closed in
/// peace).
class Connection : public FrameSink {
 public:
  typedef std::function<void(const nlohmann::json&, std::vector<host::Fd>)> FrameHandler;
  typedef std::function<void(const std::string&)> LossHandler;

  /// input and output may be the same socket (give the output a duplicate). Over a
  /// UNIX socket descriptors travel with frames (SCM_RIGHTS, unix(7)): they belong
  /// to the frame whose first byte they came with.
  Connection(host::Fd input, host::Fd output, const HeartbeatTimes& times = HeartbeatTimes());
  /// Closes the connection and waits for the reading thread.
  ~Connection() override;

  void start(FrameHandler onFrame, LossHandler onLost);
  bool send(const nlohmann::json& frame, const std::vector<int>& fds = {}) override;
  void expectFramesOf(size_t bytes) override { decoder_.accept(bytes); }

  /// Ends the reading thread from any thread; onLost is called if it was not yet.
  void close(const std::string& reason);

  /// The connection ended because nothing was heard of the peer.
  bool wasSilent() const { return silent_; }

  /// How often something was heard of the peer. Any thread.
  unsigned long timesHeard() const { return timesHeard_; }

  /// close(""), and waits for the reading thread. Not from a handler.
  void stop();

 private:
  void run();
  /// One read; false at the end of the stream.
  bool receive();
  bool writeAll(const std::string& bytes, const std::vector<int>& fds);

  host::Fd input_;
  host::Fd output_;
  bool isSocket_;
  HeartbeatTimes times_;
  FrameHandler onFrame_;
  LossHandler onLost_;
  FrameDecoder decoder_;
  std::vector<host::Fd> received_;
  host::Fd wake_;
  std::mutex writeMutex_;
  std::atomic<bool> closed_{false};
  std::atomic<bool> silent_{false};
  std::atomic<unsigned long> timesHeard_{0};
  std::atomic<bool> sentSinceBeat_{false};
  std::mutex reasonMutex_;
  std::string reason_;
  std::thread thread_;
};

}  // namespace agent

#endif
