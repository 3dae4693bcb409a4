#include "expand/caller.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "expand/child_image.h"
#include "expand/descriptors.h"
#include "expand/error.h"

namespace Expand {

std::atomic<bool> CallerExec::sigchld_received(false);
static_assert(std::atomic<bool>::is_always_lock_free, "the flag is set by a signal handler");

CallerBase::CallerBase(const char* program, const std::list<std::string>& args,
                       const std::list<std::string>& env)
    : program_(program), args_(args), env_(env) {}

CallerBase::~CallerBase() = default;

pid_t CallerBase::enter(std::vector<Connector*>&) {
  entered_ = true;
  return pid_;
}

void CallerBase::leave() { entered_ = false; }

void CallerBase::call(std::vector<Connector*>& connectors) {
  inCall_ = true;
  try {
    enter(connectors);
    prepareMainLoop_();
    doMainLoop_();
    finishMainLoop_();
    leave();
  } catch (...) {
    entered_ = false;
    inCall_ = false;
    throw;
  }
  inCall_ = false;
}

CallerExec::CallerExec(const char* program, const std::list<std::string>& args,
                       const std::list<std::string>& env, Intrinsics intrinsics)
    : CallerBase(program, args, env), intrinsics_(std::move(intrinsics)) {
  for (auto& pipe : pipes_) pipe[0] = pipe[1] = -1;
}

CallerExec::~CallerExec() = default;

void CallerExec::handle_CHLD(int) { sigchld_received = true; }

// Both ends lie above the standard descriptors, also where this process has
// closed its own: so the child can put its ends in place in any order without
// closing another one. Close-on-exec at creation keeps them from the programs
// that other threads start meanwhile.
void CallerExec::makePipe_(unsigned i) {
  int made[2];
  bool failed = pipe2(made, O_CLOEXEC) == -1;
  if (!failed) {
    for (const int end : {0, 1}) {
      pipes_[i][end] = made[end] > STDERR_FILENO ? made[end] : fcntl(made[end], F_DUPFD_CLOEXEC, 3);
      if (pipes_[i][end] == -1) failed = true;
    }
    const int error = errno;
    for (const int end : {0, 1}) {
      if (made[end] != pipes_[i][end]) close(made[end]);
    }
    errno = error;
  }
  if (failed) {
    throw Error(Error::CALLER_GENERIC, "Can't create pipe for callee's %u fd: %s", i,
                std::strerror(errno));
  }
}

pid_t CallerExec::enter(std::vector<Connector*>& connectors) {
  for (unsigned i = 0; i < 3; ++i) {
    connectors_[i] = i < connectors.size() ? connectors[i] : nullptr;
  }
  bool installed = false;
  try {
    std::list<std::string> words = args_;
    words.push_front(program_);
    const ChildImage image = {
        ArgsList(words),
        ArgsList(env_),
        program_candidates(program_.c_str(), env_),
    };
    for (unsigned i = 0; i < 3; ++i) {
      if (connectors_[i] == nullptr) continue;
      if (inCall_) {
        connectors_[i]->assign(&pollfds_[live_]);
        liveConnectors_[live_] = connectors_[i];
        ++live_;
      }
      makePipe_(i);
    }
    std::swap(pipes_[0][0], pipes_[0][1]);

    if (inCall_) {
      struct sigaction action = {};
      sigemptyset(&action.sa_mask);
      action.sa_handler = SIG_IGN;
      sigaction(SIGPIPE, &action, &savedPipe_);
      action.sa_handler = handle_CHLD;
      sigaction(SIGCHLD, &action, &savedChild_);
      installed = true;
    }

    pid_ = fork();
    if (pid_ == 0) executeProgram_(image);
    if (pid_ == -1) {
      throw Error(Error::CALLER_GENERIC, "Fork returned: %s", std::strerror(errno));
    }
    parentSteps_();
  } catch (...) {
    closePipes_();
    if (installed) finishMainLoop_();
    throw;
  }
  return CallerBase::enter(connectors);
}

void CallerExec::parentSteps_() {
  std::uint32_t entry = 0;
  for (unsigned i = 0; i < 3; ++i) {
    if (connectors_[i] == nullptr) continue;
    close(pipes_[i][1]);
    pipes_[i][1] = -1;
    if (inCall_) {
      pollfds_[entry].fd = pipes_[i][0];
      pollfds_[entry].events = i == 0 ? POLLOUT : POLLIN;
      pollfds_[entry].revents = 0;
      ++entry;
    }
    if (setFDNonblock(pipes_[i][0]) == -1) {
      throw Error(Error::CALLER_GENERIC, "Can't set O_NONBLOCK for fd %d (connector #%u): %s",
                  pipes_[i][0], i, std::strerror(errno));
    }
  }
}

void CallerExec::closePipes_() {
  for (auto& pipe : pipes_) {
    for (int& end : pipe) {
      if (end != -1) close(end);
      end = -1;
    }
  }
  live_ = 0;
}

void CallerExec::prepareMainLoop_() {}

void CallerExec::finishMainLoop_() {
  sigaction(SIGPIPE, &savedPipe_, nullptr);
  sigaction(SIGCHLD, &savedChild_, nullptr);
}

}  // namespace Expand
