#ifndef QX_SHARE_ENGINE_WORK_QUEUE_H
#define QX_SHARE_ENGINE_WORK_QUEUE_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace engine {

/// Something for a lane to do with one directory: all of it, or, where names are
/// given, these entries.
struct Job {
  std::string directory;
  std::vector<std::string> names;
  bool wanted = false;  ///< the other end has asked for them
};

/// What is still to be done at the sender. What was wanted by the other end comes
/// first, then the directory that was found last: so few wait at a time.
class WorkQueue {
 public:
  void add(Job job);

  /// The next job. Waits while others may still add some; before it waits it calls
  /// idle, without a lock. Nothing when the queue was closed.
  std::optional<Job> take(const std::function<void()>& idle);
  /// A job that was taken is done.
  void done();

  /// Waits until nothing is left to do and every lane waits, or it was closed;
  /// then false.
  bool waitUntilIdle(unsigned lanes);
  void close();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Job> found_;
  std::deque<Job> wanted_;
  unsigned working_ = 0;
  unsigned waiting_ = 0;
  bool closed_ = false;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_WORK_QUEUE_H
