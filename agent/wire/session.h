// One session: an operator and the thread that serves its requests.
#ifndef QX_AGENT_WIRE_SESSION_H
#define QX_AGENT_WIRE_SESSION_H

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "agent/system/cancel.h"
#include "agent/wire/channels.h"
#include "agent/wire/frames.h"
#include "agent/wire/message.h"
#include "framework/access.h"
#include "framework/op_factory.h"

namespace agent {

/// A request runs to completion on the session's thread; the others wait.
class Session {
 public:
  Session(boost::intrusive_ptr<QXL::QXLOpFactory> factory, FrameSink& sink, ChannelTable& channels,
          const QXL::QXLClientContext& client);
  /// Ends the session: see end().
  ~Session();

  /// Queues a request; false when too many wait already.
  bool submit(long long id, const std::string& method, const nlohmann::json& body);

  /// Cancels a request of this session: its programs are stopped if it runs, it is
  /// not served if it waits. Other ids are ignored.
  void cancel(long long id);

  /// Stops what runs, forgets what waits, has the operator finish as after a
  /// failure, and ends the thread. Does nothing more for a session that finished.
  void end();

  /// The session's "finish" was served.
  bool finished() const { return finished_; }

 private:
  struct Item;

  void run();
  void serve(const Item& item, bool answer);
  void stopPrograms();
  void refuse(long long id, int code, const std::string& argument);
  void refuseWaiting();

  boost::intrusive_ptr<QXL::QXLOpFactory> factory_;
  FrameSink& sink_;
  ChannelTable& channels_;
  QXL::QXLClientContext client_;
  boost::intrusive_ptr<QXL::QXLOperatorPrototype> operator_;
  boost::intrusive_ptr<QXL::QXLAccesserPrototype> accesser_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::list<Item> queue_;
  long long running_ = 0;  ///< id, 0 when nothing runs
  std::shared_ptr<CancelToken> cancel_;
  bool ending_ = false;
  bool ended_ = false;
  bool closed_ = false;  ///< nothing is served any more
  std::atomic<bool> finished_{false};
  std::atomic<int> threadId_{0};
  std::thread thread_;
};

}  // namespace agent

#endif
