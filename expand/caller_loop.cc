// The parent while the program runs: what CallerExec::call spends its time in.
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "expand/caller.h"
#include "expand/error.h"
#include "expand/files.h"
#include "expand/sigmask.h"

namespace Expand {
namespace {

// A wait status that is neither an exit nor a signal: nobody can tell any more
// how the program ended.
constexpr int kUnknownStatus = 0x7f;

}  // namespace

int CallerExec::calculateTimeout_() const { return 1000; }

void CallerExec::doMainLoop_() {
  try {
    SigMask mask(std::vector<int>{SIGCHLD});
    while (!exited_ || !(intrinsics_.exitWithoutDraining || live_ == 0)) {
      waitForEvents_(mask);
    }
  } catch (...) {
    closePipes_();
    finishMainLoop_();
    throw;
  }
  // What is left open when draining was not wanted.
  closePipes_();
  analyseStatus_();
}

// SIGCHLD is blocked but for the time of the poll itself, which lets it in and
// begins to wait in one step. One that came before makes the poll return at once.
void CallerExec::waitForEvents_(SigMask& mask) {
  mask.block();
  const int milliseconds = sigchld_received ? 0 : calculateTimeout_();
  const timespec timeout = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
  sigset_t open;
  sigprocmask(SIG_BLOCK, nullptr, &open);
  sigdelset(&open, SIGCHLD);
  const int ready = ppoll(pollfds_, live_, &timeout, &open);
  if (ready == -1 && errno != EINTR) {
    throw Error(Error::CALLER_GENERIC, "Error calling poll(): %s", std::strerror(errno));
  }
  if (sigchld_received) {
    sigchld_received = false;
    lookForExit_();
  } else if (ready == 0 && !exited_) {
    lookWithoutSignal_();
  }
  mask.unblock();
  if (ready > 0) serveConnectors_();
}

// Intended: a result of 0, "still running", counts as exited too, with the status
// as it stands. The signal of any child of this process thus ends the run once the
// pipes are drained, and a program that lives on after closing its output is taken
// for a success. Callers rely on not waiting for such programs, and it must stay.
void CallerExec::lookForExit_() {
  if (waitpid(pid_, &status_, WNOHANG) >= 0) {
    exited_ = true;
  } else if (errno != ECHILD) {
    throw Error(Error::CALLER_GENERIC, "waitpid returned -1: %s", std::strerror(errno));
  }
  // ECHILD: the signal was another child's, and ours had ended before.
}

// The signal can be lost: another runner may have cleared the flag for it, or put
// back its own idea of the handler. Here only the program's real end counts.
void CallerExec::lookWithoutSignal_() {
  const pid_t ended = waitpid(pid_, &status_, WNOHANG);
  if (ended == pid_) {
    exited_ = true;
  } else if (ended == -1 && errno == ECHILD) {
    // Somebody else has waited for it. No signal will come any more.
    exited_ = true;
    status_ = kUnknownStatus;
  }
}

// The index goes on also when an entry has been moved to it: that one is served in
// the next pass.
void CallerExec::serveConnectors_() {
  for (std::uint32_t k = 0; k < live_; ++k) {
    if (pollfds_[k].revents != 0 && liveConnectors_[k]->process() <= 0) closeEntry_(k);
  }
}

void CallerExec::closeEntry_(std::uint32_t k) {
  close(pollfds_[k].fd);
  for (auto& pipe : pipes_) {
    if (pipe[0] == pollfds_[k].fd) pipe[0] = -1;
  }
  const std::uint32_t last = live_ - 1;
  pollfds_[k] = pollfds_[last];
  liveConnectors_[k] = liveConnectors_[last];
  liveConnectors_[k]->assign(&pollfds_[k]);
  pollfds_[last].fd = -1;
  pollfds_[last].events = 0;
  liveConnectors_[last] = nullptr;
  live_ = last;
}

void CallerExec::analyseStatus_() {
  normalExit_ = false;
  exitCode_ = -1;
  signal_ = 0;
  if (WIFEXITED(status_)) {
    normalExit_ = true;
    exitCode_ = WEXITSTATUS(status_);
  } else if (!WIFSTOPPED(status_)) {
    signal_ = status_ & 0x7f;
  }
}

std::string CallerExec::getCoreDumpName() const {
  if (signal_ == 0 || !WCOREDUMP(status_)) return "";
  std::string usesPid;
  get_file("/proc/sys/kernel/core_uses_pid", usesPid);
  if (usesPid.empty() || usesPid[0] == '0') return "core";
  return "core." + std::to_string(pid_);
}

}  // namespace Expand
