#include "agent/transport/ssh_session.h"

#include <poll.h>

#include <cerrno>
#include <chrono>

#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "agent/system/wait.h"
#include "agent/transport/bootstrap.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kChannelTimeout(30);
constexpr std::chrono::seconds kLookAgain(1);

// Takes what comes before the bytes of a data channel off it. False if they do not
// begin in time, or the request is cancelled.
bool skipToChannel(int fd, const CancelToken* cancel) {
  const Clock::time_point giveUpAt = Clock::now() + kChannelTimeout;
  std::string line;
  for (int noise = 0; noise <= kMaxNoiseLines && Clock::now() < giveUpAt;) {
    if (cancel && cancel->isCancelled()) return false;
    if (!waitFor(fd, POLLIN, kLookAgain, {cancel ? cancel->fd() : -1})) continue;
    char byte;
    const ssize_t count = read(fd, &byte, 1);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return false;
    if (count < 0) continue;
    if (byte != '\n') {
      if (line.size() < kMaxNoiseLine) line += byte;
      continue;
    }
    if (line == kChannelBegins) return true;
    line.clear();
    ++noise;
  }
  return false;
}

}  // namespace

SshSession::~SshSession() {
  login_.leave();
  channels_.clear();
  if (!errorThread_.joinable()) return;
  raiseEvent(stopErrors_);
  errorThread_.join();
}

void SshSession::start(const Bundle& bundle, QXL::QXLProgressHandlerPrototype* handler,
                       const CancelToken* cancel) {
  const auto tell = [&](const std::string& text) {
    if (handler) handler->progress(QXL::QXLRequestProgressData(text));
  };
  tell("Connecting to " + client_.target() + " by ssh...");
  client_.completeOptions();
  login_.start(client_.command(true, bootstrapCommand(bundle.bytes, bundle.sha256)));
  login_.bringOver(bundle, client_.target(), tell, cancel);
  showErrors();
}

// From now on what comes is the agent's log.
void SshSession::showErrors() {
  stopErrors_ = newEvent();
  login_.giveErrorsAway();
  errorThread_ = std::thread([errors = login_.errors(), stop = stopErrors_.get()]() {
    for (bool last = false; !last;) {
      waitFor(errors, POLLIN, kNoTimeout, {stop});
      last = waitFor(stop, POLLIN, std::chrono::milliseconds(0));
      char buffer[4096];
      ssize_t count;
      while ((count = read(errors, buffer, sizeof buffer)) > 0) {
        [[maybe_unused]] const ssize_t shown =
            write(STDERR_FILENO, buffer, static_cast<size_t>(count));
      }
    }
  });
}

boost::intrusive_ptr<LocalChannelEnd> SshSession::openChannel(const std::string& token,
                                                              int pipeBytes,
                                                              const CancelToken* cancel) {
  ChannelPair pair = makeChannelPair(pipeBytes);
  if (!pair.first) return nullptr;
  ChildOptions options;
  options.streams[0] = pair.second->getInputFd();
  options.streams[1] = pair.second->getOutputFd();
  options.streams[2] = login_.errorsWrite();
  auto child = std::make_unique<Child>();
  const int problem = child->start(client_.command(false, channelCommand(token)), options);
  if (problem != 0) {
    fail(client_.program() + ": " + errnoText(problem));
    return nullptr;
  }
  channels_.push_back(std::move(child));
  // ssh alone holds that end: its death is the end of the stream.
  pair.second.reset();
  if (!skipToChannel(pair.first->getInputFd(), cancel)) {
    fail(cancel && cancel->isCancelled()
             ? "Cancelled"
             : "a data channel to " + client_.target() + " could not be opened");
    return nullptr;
  }
  return pair.first;
}

}  // namespace agent
