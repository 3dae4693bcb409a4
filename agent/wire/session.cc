#include "agent/wire/session.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/system/descendants.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"

namespace agent {

namespace {
// Of one line for people, in bytes.
constexpr size_t kLongestProgress = 16384;
}  // namespace

struct Session::Item {
  long long id;
  std::string method;
  boost::intrusive_ptr<Message> in;
};

Session::Session(boost::intrusive_ptr<QXL::QXLOpFactory> factory, FrameSink& sink,
                 ChannelTable& channels, const QXL::QXLClientContext& client)
    : factory_(std::move(factory)),
      sink_(sink),
      channels_(channels),
      client_(client),
      operator_(factory_->newOperator()),
      accesser_(factory_->newAccesser(operator_)),
      thread_([this]() { run(); }) {}

Session::~Session() { end(); }

bool Session::submit(long long id, const std::string& method, const nlohmann::json& body) {
  std::lock_guard lock(mutex_);
  if (closed_) {
    refuse(id, 409, "the session has ended");
    return true;
  }
  if (queue_.size() >= static_cast<size_t>(accesser_->maxQueued())) return false;
  queue_.push_back({id, method, boost::intrusive_ptr<Message>(new Message(body))});
  changed_.notify_all();
  return true;
}

void Session::cancel(long long id) {
  std::lock_guard lock(mutex_);
  if (running_ == id) {
    cancel_->cancel();
    stopPrograms();
  }
  for (auto item = queue_.begin(); item != queue_.end(); ++item) {
    if (item->id != id) continue;
    queue_.erase(item);
    refuse(id, kCancelledByUser, "");
    return;
  }
}

// The framework's runner watches the token; programs that the operator's code
// runs by itself are told here.
void Session::stopPrograms() {
  if (cancel_->grantedToPrograms().count() > 0) return;
  for (const pid_t program : descendantsOfThread(threadId_)) kill(program, SIGTERM);
}

void Session::end() {
  {
    std::unique_lock lock(mutex_);
    if (ended_) return;
    ended_ = true;
    ending_ = true;
    queue_.clear();
    changed_.notify_all();
    while (running_ != 0) {
      cancel_->cancel(kConnectionLost, "");
      stopPrograms();
      changed_.wait_for(lock, std::chrono::milliseconds(500));
    }
  }
  if (thread_.joinable()) thread_.join();
}

void Session::run() {
  threadId_ = static_cast<int>(syscall(SYS_gettid));
  const bool acquired = accesser_->acquire() == 0;
  const std::string refusal = acquired ? "" : QXL::getErrorMessage();
  for (;;) {
    Item item;
    {
      std::unique_lock lock(mutex_);
      running_ = 0;
      changed_.notify_all();
      changed_.wait(lock, [this]() { return ending_ || finished_ || !queue_.empty(); });
      if (ending_ || finished_) break;
      item = std::move(queue_.front());
      queue_.pop_front();
      running_ = item.id;
      cancel_ = std::make_shared<CancelToken>();
    }
    if (acquired) {
      serve(item, true);
      continue;
    }
    refuse(item.id, 429, refusal);
    finished_ = true;
  }
  refuseWaiting();
  if (acquired && !finished_) {
    cancel_ = std::make_shared<CancelToken>();
    serve({0, kMethodFinish, boost::intrusive_ptr<Message>(new Message())}, false);
  }
  accesser_.reset();
  operator_.reset();
}

void Session::serve(const Item& item, bool answer) {
  const auto progress = [&](const QXL::QXLRequestProgressData& data) {
    if (!answer) return;
    sink_.send({{"type", "progress"},
                {"id", item.id},
                {"text", data.text.substr(0, kLongestProgress)},
                {"description", data.description.substr(0, kLongestProgress)},
                {"percent", data.percent}});
  };
  boost::intrusive_ptr<Message> out(new Message());
  CurrentRequest request;
  request.client = client_;
  request.cancel = cancel_;
  request.channels = &channels_;
  request.answer = out;
  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context(new RequestContext(progress));
  {
    const CurrentRequestScope scope(request, context);
    try {
      operator_->process(item.method, item.in, out);
    } catch (const std::exception& problem) {
      QXL::addError(out, QXL::QXLErrors, 500, problem.what());
    }
  }
  if (item.method == kMethodFinish) finished_ = true;
  if (!answer) return;
  try {
    sink_.send({{"type", "answer"}, {"id", item.id}, {"body", out->body()}});
  } catch (const std::length_error& problem) {
    // A failure of this request, and of nothing else.
    refuse(item.id, 500, "the answer of '" + item.method + "' is too large: " + problem.what());
  }
}

// What came after "finish" is told that there is nothing left to serve it.
void Session::refuseWaiting() {
  std::lock_guard lock(mutex_);
  if (ending_) return;
  for (const Item& item : queue_) refuse(item.id, 409, "the session has ended");
  queue_.clear();
  closed_ = true;
}

void Session::refuse(long long id, int code, const std::string& argument) {
  boost::intrusive_ptr<Message> out(new Message());
  QXL::addError(out, QXL::QXLErrors, code, argument);
  sink_.send({{"type", "answer"}, {"id", id}, {"body", out->body()}});
}

}  // namespace agent
