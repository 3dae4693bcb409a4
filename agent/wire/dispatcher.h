// The serving end of a connection: requests in, progress and answers out.
#ifndef QX_AGENT_WIRE_DISPATCHER_H
#define QX_AGENT_WIRE_DISPATCHER_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/wire/channels.h"
#include "agent/wire/frames.h"
#include "agent/wire/session.h"

namespace agent {

/// The sessions of one connection. Frames come from one thread at a time.
class Dispatcher {
 public:
  /// channelTimeout: how long a stage waits for a channel that comes over a transport of
  /// its own.
  Dispatcher(FrameSink& sink, const QXL::QXLClientContext& client,
             std::chrono::seconds channelTimeout = std::chrono::seconds(0))
      : sink_(sink), client_(client), channels_(channelTimeout) {}
  ~Dispatcher() { end(); }

  /// A "request", "cancel" or "channel" frame came in, the last with two
  /// descriptors: where its user reads, and where it writes. Throws
  /// std::runtime_error when the frame is malformed.
  void onFrame(const nlohmann::json& frame, std::vector<host::Fd> fds);

  /// Ends every session, as after the loss of the connection.
  void end();

  ChannelTable& channels() { return channels_; }

 private:
  void request(const nlohmann::json& frame);
  void refuse(long long id, int code, const std::string& argument);

  FrameSink& sink_;
  QXL::QXLClientContext client_;
  ChannelTable channels_;
  std::map<std::string, std::unique_ptr<Session>> sessions_;
};

}  // namespace agent

#endif
