#include "share/engine/work_queue.h"

#include <utility>

namespace engine {

void WorkQueue::add(Job job) {
  {
    const std::scoped_lock lock(mutex_);
    if (job.wanted)
      wanted_.push_back(std::move(job));
    else
      found_.push_back(std::move(job));
  }
  changed_.notify_all();
}

std::optional<Job> WorkQueue::take(const std::function<void()>& idle) {
  std::unique_lock lock(mutex_);
  const auto ready = [this] { return closed_ || !found_.empty() || !wanted_.empty(); };
  if (!ready()) {
    lock.unlock();
    idle();
    lock.lock();
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, ready);
    --waiting_;
  }
  if (closed_) return std::nullopt;
  Job job;
  if (!wanted_.empty()) {
    job = std::move(wanted_.front());
    wanted_.pop_front();
  } else {
    job = std::move(found_.back());
    found_.pop_back();
  }
  ++working_;
  return job;
}

void WorkQueue::done() {
  const std::scoped_lock lock(mutex_);
  --working_;
}

bool WorkQueue::waitUntilIdle(unsigned lanes) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] {
    return closed_ || (found_.empty() && wanted_.empty() && working_ == 0 && waiting_ == lanes);
  });
  return !closed_;
}

void WorkQueue::close() {
  {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

}  // namespace engine
