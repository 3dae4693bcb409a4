#include "agent/transport/caller.h"

#include <poll.h>

#include <chrono>
#include <stdexcept>

#include "agent/system/event.h"
#include "agent/system/last_error.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
// How long a cancelled request may take to answer, and how often it is reminded.
constexpr std::chrono::seconds cancelPatience(30);
constexpr int reminderMilliseconds = 1000;

std::string lostText(const std::string& reason) {
  return "The connection to the agent was lost" + (reason.empty() ? "" : ": " + reason);
}

}  // namespace

struct Caller::Pending {
  Pending() : event(newEvent()) {}
  std::mutex mutex;
  std::deque<nlohmann::json> frames;
  bool lost = false;
  UniqueFd event;

  void push(const nlohmann::json& frame) {
    std::lock_guard lock(mutex);
    frames.push_back(frame);
    raiseEvent(event);
  }
};

int Caller::call(const Request& request, nlohmann::json& answer,
                 QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel) {
  const auto pending = std::make_shared<Pending>();
  long long id;
  {
    std::lock_guard lock(mutex_);
    if (lost_) {
      fail(lostText(lostReason_));
      return connectionLost;
    }
    id = nextId_++;
    pending_[id] = pending;
  }
  const auto done = [&](int code) {
    std::lock_guard lock(mutex_);
    pending_.erase(id);
    if (code == connectionLost) fail(lostText(lostReason_));
    return code;
  };
  if (!sink_.send({{"type", "request"},
                   {"id", id},
                   {"session", request.session},
                   {"operator", request.operatorName},
                   {"method", request.method},
                   {"body", request.body}})) {
    return done(connectionLost);
  }

  Clock::time_point giveUp = Clock::time_point::max();
  for (;;) {
    const bool cancelled = cancel && cancel->isCancelled();
    if (cancelled) {
      // Sent again and again: what was just starting may have missed the first.
      sink_.send({{"type", "cancel"}, {"id", id}});
      if (giveUp == Clock::time_point::max()) giveUp = Clock::now() + cancelPatience;
      if (Clock::now() >= giveUp) {
        fail("the agent did not stop '" + request.method + "' within " +
             std::to_string(cancelPatience.count()) + " seconds");
        return done(cancelledByUser);
      }
    }
    pollfd entries[2] = {{pending->event.get(), POLLIN, 0},
                         {cancel ? cancel->fd() : -1, POLLIN, 0}};
    poll(entries, cancelled ? 1 : 2, cancelled ? reminderMilliseconds : -1);
    clearEvent(pending->event);
    for (;;) {
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
          break;
        }
      }
      // Not with that lock held: a loss takes the two in the other order.
      if (lost) return done(connectionLost);
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
