// Something that is done again and again, beside everything else.
#ifndef QX_AGENT_PROGRAMS_TICKER_H
#define QX_AGENT_PROGRAMS_TICKER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace agent {

/// Calls `work` each `period`, on a thread of its own, until it is destroyed.
class Ticker {
 public:
  Ticker(std::chrono::milliseconds period, std::function<void()> work)
      : period_(period), work_(std::move(work)), thread_([this]() { run(); }) {}
  ~Ticker() {
    {
      const std::lock_guard lock(mutex_);
      end_ = true;
    }
    ended_.notify_one();
    thread_.join();
  }
  Ticker(const Ticker&) = delete;
  Ticker& operator=(const Ticker&) = delete;

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, period_, [this]() { return end_; })) work_();
  }

  const std::chrono::milliseconds period_;
  const std::function<void()> work_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool end_ = false;
  std::thread thread_;
};

}  // namespace agent

#endif
