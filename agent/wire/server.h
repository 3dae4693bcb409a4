// An agent that serves others.
#ifndef QX_AGENT_WIRE_SERVER_H
#define QX_AGENT_WIRE_SERVER_H

#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "agent/wire/connection.h"
#include "agent/wire/dispatcher.h"

namespace agent {

/// One peer's connection and its sessions.
class Peer {
 public:
  /// channelTimeout: see Dispatcher.
  Peer(host::Fd input, host::Fd output, const QXL::QXLClientContext& client,
       std::chrono::seconds channelTimeout = std::chrono::seconds(0),
       const HeartbeatTimes& times = HeartbeatTimes());
  /// Closes the connection and ends its sessions.
  ~Peer();
  /// The connection is gone and every session has ended.
  bool ended() const { return ended_; }
  /// Readable once ended; for poll.
  int endedFd() const { return event_.get(); }
  /// How often something was heard of it.
  unsigned long timesHeard() const { return connection_.timesHeard(); }
  /// Where channel ends that come over another transport are put.
  ChannelTable& channels() { return dispatcher_.channels(); }

 private:
  host::Fd event_;
  std::atomic<bool> ended_{false};
  bool greeted_ = false;
  Connection connection_;
  Dispatcher dispatcher_;
};

/// Listens on a UNIX socket.
class Server {
 public:
  /// Takes the path, also from a socket that nobody listens on any more. Throws
  /// std::runtime_error when that fails.
  explicit Server(const std::string& path);
  /// Removes the socket and ends every connection.
  ~Server();

  /// Serves until the descriptor becomes readable.
  void run(int stopFd);

 private:
  void accept();

  std::string path_;
  host::Fd listener_;
  std::list<std::unique_ptr<Peer>> peers_;
};

}  // namespace agent

#endif
