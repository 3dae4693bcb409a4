#include "agent/transport/ssh_login.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>

#include "agent/system/last_error.h"
#include "agent/system/wait.h"
#include "agent/transport/bootstrap.h"
#include "agent/transport/ssh_problem.h"
#include "host/descriptors.h"
#include "host/file.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kMaxErrorText = 65536;
// How long a step waits for a stream before it looks at everything again.
constexpr std::chrono::seconds kStep(1);
constexpr std::chrono::milliseconds kLeaveStep(20);
// For the client to end, and to say why, once its connection is gone.
constexpr std::chrono::seconds kEndTimeout(5);

void makePipe(host::Fd& readEnd, host::Fd& writeEnd) {
  host::FdPair ends = host::makePipe();
  if (!ends) throw std::runtime_error("cannot make a pipe: " + errnoText(errno));
  readEnd = std::move(ends.first);
  writeEnd = std::move(ends.second);
}

bool wouldBlock() { return errno == EAGAIN || errno == EINTR; }

}  // namespace

void SshLogin::start(const std::vector<std::string>& command) {
  host::Fd theirInput, theirOutput;
  makePipe(theirInput, input_);
  makePipe(output_, theirOutput);
  makePipe(errors_, errorsWrite_);
  for (const host::Fd* fd : {&input_, &output_, &errors_}) {
    fcntl(fd->get(), F_SETFL, fcntl(fd->get(), F_GETFL) | O_NONBLOCK);
  }
  ChildOptions options;
  options.streams[0] = theirInput.get();
  options.streams[1] = theirOutput.get();
  options.streams[2] = errorsWrite_.get();
  // It must be able to ask for a password on the terminal.
  options.ownGroup = false;
  const int problem = child_.start(command, options);
  if (problem != 0) throw std::runtime_error(command[0] + ": " + errnoText(problem));
}

void SshLogin::bringOver(const Bundle& bundle, const std::string& target, const Tell& tell,
                         const CancelToken* cancel) {
  target_ = target;
  giveUpAt_ = Clock::now() + patience_;
  // A server that asks again and again for what it was sent is not listened to for ever.
  bool sent = false;
  for (int noise = 0;;) {
    const BootstrapLine line = readBootstrapLine(readLine(cancel));
    switch (line.kind) {
      case BootstrapLine::Kind::kSend:
        if (sent) throw std::runtime_error(target + " asks for the agent a second time");
        sent = true;
        tell("Sending the agent to " + target + " (" +
             std::to_string((bundle.bytes + 1048575) / 1048576) + " MiB)...");
        sendBundle(bundle, cancel);
        break;
      case BootstrapLine::Kind::kRun:
        return;
      case BootstrapLine::Kind::kError:
        throw std::runtime_error(explainBootstrapFailure(target, line.word, line.detail));
      case BootstrapLine::Kind::kNoise:
        if (++noise > kMaxNoiseLines) giveUp(cancel);
    }
  }
}

// One line of the server's program. Bytes behind it stay unread: they belong to
// the agent.
std::string SshLogin::readLine(const CancelToken* cancel) {
  std::string line;
  for (;;) {
    checkTime();
    char byte;
    const ssize_t count = read(output_.get(), &byte, 1);
    if (count == 1) {
      if (byte == '\n') return line;
      if (line.size() < kMaxNoiseLine) line += byte;
      continue;
    }
    if (count == 0 || !wouldBlock() || (cancel && cancel->isCancelled())) giveUp(cancel);
    waitFor(output_.get(), POLLIN, kStep, {errors_.get(), cancel ? cancel->fd() : -1});
    drainErrors();
  }
}

void SshLogin::sendBundle(const Bundle& bundle, const CancelToken* cancel) {
  const host::Fd file(open(bundle.path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) throw std::runtime_error(bundle.path + ": " + errnoText(errno));
  char buffer[65536];
  ssize_t got;
  while ((got = read(file.get(), buffer, sizeof buffer)) > 0) {
    for (ssize_t sent = 0; sent < got;) {
      const ssize_t count = write(input_.get(), buffer + sent, static_cast<size_t>(got - sent));
      if (count > 0) {
        sent += count;
        continue;
      }
      // A server's program that has given up says why; that is read next.
      if (count < 0 && !wouldBlock()) return;
      if (cancel && cancel->isCancelled()) giveUp(cancel);
      checkTime();
      waitFor(input_.get(), POLLOUT, kStep, {errors_.get(), cancel ? cancel->fd() : -1});
      drainErrors();
    }
  }
  if (got < 0) throw std::runtime_error(bundle.path + ": " + errnoText(errno));
}

void SshLogin::checkTime() const {
  if (Clock::now() < giveUpAt_) return;
  throw std::runtime_error("the agent does not run on " + target_ + " after " +
                           std::to_string(patience_.count()) + " seconds");
}

// The connection ended before the agent ran.
void SshLogin::giveUp(const CancelToken* cancel) {
  if (cancel && cancel->isCancelled()) {
    child_.signalGroup(SIGTERM);
    throw std::runtime_error("Cancelled");
  }
  input_.reset();
  const Clock::time_point end = Clock::now() + kEndTimeout;
  while (!child_.poll() && Clock::now() < end) {
    waitFor(errors_.get(), POLLIN, kLeaveStep);
    drainErrors();
  }
  drainErrors();
  throw std::runtime_error(explainSshFailure(target_, errorText_, child_.status()));
}

void SshLogin::leave() {
  input_.reset();
  const Clock::time_point end = Clock::now() + leaveTimeout_;
  while (child_.started() && !child_.poll() && Clock::now() < end) {
    // Nobody else reads what is still coming.
    char buffer[4096];
    if (waitFor(output_ ? output_.get() : child_.fd(), POLLIN, kLeaveStep) && output_ &&
        read(output_.get(), buffer, sizeof buffer) == 0) {
      output_.reset();
    }
    if (errorsAreOurs_) drainErrors();
  }
}

void SshLogin::drainErrors() {
  char buffer[4096];
  ssize_t count;
  while ((count = read(errors_.get(), buffer, sizeof buffer)) > 0) {
    if (errorText_.size() < kMaxErrorText) errorText_.append(buffer, static_cast<size_t>(count));
  }
}

}  // namespace agent
