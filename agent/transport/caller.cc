#include "agent/transport/caller.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "agent/transport/request.h"
#include "agent/wire/message.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
// How long a cancelled request may take to answer, and how often it is reminded.
constexpr std::chrono::seconds kCancelTimeout(30);
// How long one that is late already has for that.
constexpr std::chrono::seconds kLateTimeout(5);
constexpr std::chrono::milliseconds kReminder(1000);
// Lines of progress that may wait; of more the oldest go.
constexpr size_t kMostWaiting = 1000;
constexpr int kFramesAtATime = 100;

// For poll: rounded up, and no longer than a poll can be.
int millisecondsUntil(Clock::time_point when) {
  if (when == Clock::time_point::max()) return -1;
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(when - Clock::now());
  return static_cast<int>(std::clamp<long long>(left.count() + 1, 0, 3600000));
}

std::string lostText(const std::string& reason) {
  return "The connection to the agent was lost" + (reason.empty() ? "" : ": " + reason);
}

}  // namespace

struct Caller::Pending {
  Pending() : event(newEvent()) {}
  std::mutex mutex;
  std::deque<nlohmann::json> frames;
  bool lost = false;
  host::Fd event;

  void push(const nlohmann::json& frame) {
    std::lock_guard lock(mutex);
    if (frames.size() >= kMostWaiting) frames.pop_front();
    frames.push_back(frame);
    raiseEvent(event);
  }
};

int Caller::call(const Request& request, nlohmann::json& answer,
                 QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel,
                 const RequestLimits& limits) {
  const auto pending = std::make_shared<Pending>();
  long long id;
  {
    std::lock_guard lock(mutex_);
    if (lost_) {
      fail(lostText(lostReason_));
      return kConnectionLost;
    }
    id = nextId_++;
    pending_[id] = pending;
  }
  const auto done = [&](int code) {
    std::lock_guard lock(mutex_);
    pending_.erase(id);
    if (code == kConnectionLost) fail(lostText(lostReason_));
    return code;
  };
  if (!sink_.send({{"type", "request"},
                   {"id", id},
                   {"session", request.session},
                   {"operator", request.operatorName},
                   {"method", request.method},
                   {"body", request.body}})) {
    return done(kConnectionLost);
  }

  constexpr Clock::time_point kNever = Clock::time_point::max();
  const Clock::time_point due = limits.longest.count() ? Clock::now() + limits.longest : kNever;
  Clock::time_point giveUp = kNever;
  Clock::time_point nextReminder = Clock::time_point::min();
  bool more = false;  // frames that came and were not looked at
  for (;;) {
    const bool late = Clock::now() >= due;
    const bool stopping = late || (cancel && cancel->isCancelled());
    if (limits.abandon && limits.abandon->isAbandoned()) {
      fail("'" + request.method + "' was not waited for");
      return done(kCancelledByUser);
    }
    if (stopping) {
      // Sent again and again: what was just starting may have missed the first. Not more
      // often, however: a peer that does not read would make this wait for it.
      if (Clock::now() >= nextReminder) {
        sink_.send({{"type", "cancel"}, {"id", id}});
        nextReminder = Clock::now() + kReminder;
      }
      if (giveUp == kNever) giveUp = Clock::now() + (late ? kLateTimeout : kCancelTimeout);
      if (Clock::now() >= giveUp) {
        if (late) {
          fail("the agent did not answer '" + request.method + "' within " +
               std::to_string(
                   std::chrono::duration_cast<std::chrono::seconds>(limits.longest).count()) +
               " seconds");
          return done(kAnswerTimedOut);
        }
        fail("the agent did not stop '" + request.method + "' within " +
             std::to_string(kCancelTimeout.count()) + " seconds");
        return done(kCancelledByUser);
      }
    }
    pollfd entries[3] = {{pending->event.get(), POLLIN, 0},
                         {limits.abandon ? limits.abandon->abandonFd() : -1, POLLIN, 0},
                         {cancel ? cancel->fd() : -1, POLLIN, 0}};
    const Clock::time_point wakeAt = stopping ? Clock::now() + kReminder : due;
    poll(entries, stopping ? 2 : 3, more ? 0 : millisecondsUntil(wakeAt));
    clearEvent(pending->event);
    // A peer that floods must not keep this from looking at the time and the cancel.
    more = true;
    for (int left = kFramesAtATime; left > 0; --left) {
      nlohmann::json frame;
      bool lost = false;
      {
        std::lock_guard lock(pending->mutex);
        if (!pending->frames.empty()) {
          frame = std::move(pending->frames.front());
          pending->frames.pop_front();
        } else if (pending->lost) {
          lost = true;
        } else {
          more = false;
          break;
        }
      }
      // Not with that lock held: a loss takes the two in the other order.
      if (lost) return done(kConnectionLost);
      if (frame["type"] == "answer") {
        answer = frame["body"];
        return done(0);
      }
      if (handler) {
        QXL::QXLRequestProgressData data(frame["text"].get<std::string>());
        data.description = frame["description"].get<std::string>();
        data.percent = frame["percent"].get<int>();
        handler->progress(data);
      }
    }
  }
}

void Caller::onFrame(const nlohmann::json& frame) {
  const std::string type = textOf(frame, "type");
  const auto pending = find(numberOf(frame, "id"));
  if (type == "answer") {
    Message::check(frame.value("body", nlohmann::json()));
  } else {
    textOf(frame, "text");
    textOf(frame, "description");
    numberOf(frame, "percent");
  }
  // The answer to a request that was given up comes too late for anyone.
  if (pending) pending->push(frame);
}

void Caller::onLost(const std::string& reason) {
  std::lock_guard lock(mutex_);
  if (lost_) return;
  lost_ = true;
  lostReason_ = reason;
  for (auto& [id, pending] : pending_) {
    std::lock_guard pendingLock(pending->mutex);
    pending->lost = true;
    raiseEvent(pending->event);
  }
}

std::shared_ptr<Caller::Pending> Caller::find(long long id) {
  std::lock_guard lock(mutex_);
  const auto found = pending_.find(id);
  return found == pending_.end() ? nullptr : found->second;
}

}  // namespace agent
