#include "framework/runner.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "agent/system/child.h"
#include "agent/system/last_error.h"
#include "agent/system/tail_buffer.h"
#include "agent/wire/request_context.h"
#include "host/descriptors.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kKillGrace(5);

std::vector<std::string> toVector(const char* const* argv) {
  std::vector<std::string> words;
  while (*argv) words.emplace_back(*argv++);
  return words;
}

// Cuts a stream into chunks at any of the divider's characters.
class Chunks {
 public:
  explicit Chunks(size_t limit) : limit_(limit) {}
  void setDivider(const std::string& characters) { divider_ = characters; }

  void add(std::string_view bytes) {
    for (const char byte : bytes) {
      if (divider_.find(byte) != std::string::npos) {
        flush();
      } else {
        partial_ += byte;
        // A stream without dividers must not fill the memory.
        if (partial_.size() >= limit_) flush();
      }
    }
  }
  void flush() {
    if (partial_.empty()) return;
    whole_.push_back(std::move(partial_));
    partial_.clear();
  }
  bool empty() const { return whole_.empty(); }
  char* next() {
    if (whole_.empty()) return nullptr;
    current_ = std::move(whole_.front());
    whole_.pop_front();
    return current_.data();
  }

 private:
  size_t limit_;
  std::string divider_ = "\n";
  std::string partial_;
  std::string current_;
  std::deque<std::string> whole_;
};

// Reads what a descriptor has; false at its end.
bool drain(host::Fd& fd, const std::function<void(std::string_view)>& sink) {
  char buffer[16384];
  for (;;) {
    const ssize_t count = read(fd.get(), buffer, sizeof buffer);
    if (count > 0) {
      sink(std::string_view(buffer, static_cast<size_t>(count)));
      continue;
    }
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return true;
    fd.reset();
    return false;
  }
}

agent::CancelToken* currentCancel() {
  const agent::CurrentRequest* request = agent::CurrentRequest::get();
  return request ? request->cancel.get() : nullptr;
}

// Programs that are given time after a cancel are not followed by others.
bool cancelStartsNothing() {
  const agent::CancelToken* cancel = currentCancel();
  return cancel && cancel->isCancelled() && cancel->grantedToPrograms().count() > 0;
}

}  // namespace

namespace QXL {

// What one run of a program needs. Error output is drained by a thread when
// nobody else would: a program must never block on it.
// As long as that thread is there, `error` and `errorTail` are its own.
struct GenExec::State {
  explicit State(int bytes)
      : outputTail(static_cast<size_t>(bytes)),
        errorTail(static_cast<size_t>(bytes)),
        chunks(static_cast<size_t>(bytes)) {}
  ~State() { stopDrainer(); }

  agent::Child child;
  int wired[3] = {-1, -1, -1};
  host::Fd input, output, error;
  std::string toFeed;
  agent::TailBuffer outputTail, errorTail;
  Chunks chunks;
  bool readChunks = false;
  bool dieWithParent = false;
  std::string startFailure;
  Clock::time_point deadline = Clock::time_point::max();
  Clock::time_point killAt = Clock::time_point::max();
  bool cancelled = false;
  bool terminated = false;
  host::Fd drainerStop;
  std::thread drainer;

  int start(const char* const* argv, int flags, int seconds, const char* feed);
  void startDrainer();
  void stopDrainer();
  bool pump();
  void waitForActivity();
  void enforceLimits();
  int finish();
};

int GenExec::State::start(const char* const* argv, int flags, int seconds, const char* feed) {
  agent::ChildOptions options;
  options.dieWithParent = dieWithParent;
  host::Fd childEnds[3];
  const auto makePipe = [&](int stream, host::Fd& ours, bool weWrite) {
    host::FdPair ends = host::makePipe();
    if (!ends) return errno;
    ours = std::move(weWrite ? ends.second : ends.first);
    childEnds[stream] = std::move(weWrite ? ends.first : ends.second);
    fcntl(ours.get(), F_SETFL, O_NONBLOCK);
    options.streams[stream] = childEnds[stream].get();
    return 0;
  };
  int problem = 0;
  for (int i = 0; i < 3; ++i) options.streams[i] = wired[i];
  if (feed && problem == 0) {
    toFeed = feed;
    problem = makePipe(0, input, true);
  }
  if ((flags & GenExecOutput) && wired[1] < 0 && problem == 0) {
    problem = makePipe(1, output, false);
  }
  if (wired[2] < 0 && problem == 0) problem = makePipe(2, error, false);
  if (problem == 0 && cancelStartsNothing()) problem = ECANCELED;
  if (problem == 0) problem = child.start(toVector(argv), options);
  if (problem != 0) {
    startFailure = std::string(argv[0]) + ": " + agent::errnoText(problem);
    errorTail.add(startFailure);
    input.reset();
    output.reset();
    error.reset();
    return agent::fail(startFailure);
  }
  if (seconds > 0) deadline = Clock::now() + std::chrono::seconds(seconds);
  return 0;
}

void GenExec::State::startDrainer() {
  host::FdPair stop = host::makePipe();
  if (!stop) return;
  drainerStop = std::move(stop.second);
  drainer = std::thread([this, stopRead = std::move(stop.first)]() {
    for (;;) {
      pollfd entries[2] = {{error.get(), POLLIN, 0}, {stopRead.get(), POLLIN, 0}};
      if (poll(entries, 2, -1) < 0 && errno != EINTR) return;
      const bool more = drain(error, [this](std::string_view bytes) { errorTail.add(bytes); });
      if (!more || entries[1].revents) return;
    }
  });
}

void GenExec::State::stopDrainer() {
  drainerStop.reset();
  if (drainer.joinable()) drainer.join();
}

// Moves what can be moved without waiting. False when no pipe is open any more.
bool GenExec::State::pump() {
  if (input) {
    const ssize_t count = write(input.get(), toFeed.data(), toFeed.size());
    if (count > 0) toFeed.erase(0, static_cast<size_t>(count));
    if (toFeed.empty() || (count < 0 && errno != EAGAIN && errno != EINTR)) input.reset();
  }
  if (output) {
    drain(output, [this](std::string_view bytes) {
      outputTail.add(bytes);
      if (readChunks) chunks.add(bytes);
    });
  }
  if (!drainer.joinable() && error) {
    drain(error, [this](std::string_view bytes) { errorTail.add(bytes); });
  }
  return input || output || (!drainer.joinable() && error);
}

void GenExec::State::waitForActivity() {
  pollfd entries[5];
  nfds_t count = 0;
  if (input) entries[count++] = {input.get(), POLLOUT, 0};
  if (output) entries[count++] = {output.get(), POLLIN, 0};
  if (!drainer.joinable() && error) entries[count++] = {error.get(), POLLIN, 0};
  if (child.fd() >= 0) entries[count++] = {child.fd(), POLLIN, 0};
  const agent::CancelToken* cancel = currentCancel();
  if (cancel && !cancelled && !terminated) entries[count++] = {cancel->fd(), POLLIN, 0};
  int timeout = 1000;
  const Clock::time_point next = std::min(deadline, killAt);
  if (next != Clock::time_point::max()) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count() + 1;
    timeout = static_cast<int>(std::clamp<long long>(left, 0, timeout));
  }
  poll(entries, count, timeout);
}

void GenExec::State::enforceLimits() {
  const Clock::time_point now = Clock::now();
  const agent::CancelToken* cancel = currentCancel();
  if (!cancelled && cancel && cancel->isCancelled()) {
    cancelled = true;
    deadline = std::min(deadline, now + cancel->grantedToPrograms());
  }
  if (!terminated && now >= deadline) {
    terminated = true;
    child.signalGroup(SIGTERM);
    deadline = Clock::time_point::max();
    killAt = now + kKillGrace;
  }
  if (now >= killAt) {
    child.signalGroup(SIGKILL);
    killAt = Clock::time_point::max();
  }
}

// Runs the program to its end. Output that descendants still hold open is not
// waited for.
int GenExec::State::finish() {
  if (!child.started()) return 127 << 8;
  while (!child.poll()) {
    enforceLimits();
    waitForActivity();
    pump();
  }
  stopDrainer();
  pump();
  chunks.flush();
  return child.status();
}

GenExec::GenExec(int bytes) : state_(new State(std::max(bytes, 1))) {}
GenExec::~GenExec() { delete state_; }

int GenExec::execWithOnlyError(const char* const* argv, int flags, int seconds) {
  if (state_->start(argv, flags & GenExecOutput, seconds, nullptr) != 0) return 127 << 8;
  const int status = state_->finish();
  agent::setLastError(state_->errorTail.text());
  return status;
}

int GenExec::execAsync(int flags, const char* const* argv, int seconds) {
  if (state_->start(argv, flags & ~GenExecOutput, seconds, nullptr) != 0) return -1;
  state_->startDrainer();
  return 0;
}

int GenExec::wait() {
  const int status = state_->finish();
  agent::setLastError(state_->errorTail.text());
  return status;
}

void GenExec::setfd(int stream, int fd) {
  const int index = stream == GenExecInput ? 0 : stream == GenExecOutput ? 1 : 2;
  state_->wired[index] = fd;
}

void GenExec::setChunkDivider(const std::string& characters) {
  state_->chunks.setDivider(characters);
}

int GenExec::execComplexBegin(const char* const* argv, int flags, int seconds, const char* input) {
  state_->readChunks = true;
  return state_->start(argv, flags, seconds, input);
}

int GenExec::execComplexGet() {
  while (state_->chunks.empty()) {
    const bool ended = state_->child.poll();
    if (ended) state_->pump();
    if (ended || !state_->output) {
      state_->chunks.flush();
      return !state_->chunks.empty();
    }
    state_->enforceLimits();
    state_->waitForActivity();
    state_->pump();
  }
  return 1;
}

char* GenExec::gets(int stream) {
  return stream == GenExecOutput ? state_->chunks.next() : nullptr;
}

int GenExec::execComplexEnd() { return wait(); }

std::string GenExec::getOutput(int stream) const {
  return stream == GenExecError ? state_->errorTail.text() : state_->outputTail.text();
}

// A program that outlives one call would outlive a killed agent, too.
HWExec::HWExec(int bytes) : GenExec(bytes) { state_->dieWithParent = true; }
HWExec::~HWExec() = default;

}  // namespace QXL
