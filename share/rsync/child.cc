#include "share/rsync/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <string>

#include "host/process.h"
#include "share/rsync/descriptor.h"
#include "share/rsync/enclosure.h"
#include "share/rsync/failure.h"
#include "share/rsync/stock.h"

namespace qxrsync {

namespace {

constexpr std::array<int, 4> kHeldSignals = {SIGCHLD, SIGHUP, SIGINT, SIGTERM};

// How the child tells that it did not come as far as stock rsync, or its task: a status
// and a text. Nothing when it did.
void reportFailure(int report, const Failure& failure) {
  const int status = failure.status();
  const std::string text = failure.what();
  if (::write(report, &status, sizeof status) < 0 || ::write(report, text.data(), text.size()) < 0)
    ::_exit(kExitSystem);
}

// Throws Failure when the child has reported one.
void readReport(int report) {
  std::string text(4096, '\0');
  size_t size = 0;
  ssize_t count = 0;
  while (size < text.size() &&
         ((count = ::read(report, text.data() + size, text.size() - size)) > 0 ||
          (count < 0 && errno == EINTR)))
    size += count > 0 ? static_cast<size_t>(count) : 0;
  if (size == 0) return;  // closed by exec, or by the task's beginning
  int status = kExitSystem;
  if (size >= sizeof status) std::memcpy(&status, text.data(), sizeof status);
  throw Failure(status, size > sizeof status ? text.substr(sizeof status, size - sizeof status)
                                             : "the child process died");
}

// Whoever would read it has died.
bool isDeaf(int writingEnd) {
  pollfd end{writingEnd, POLLOUT, 0};
  return ::poll(&end, 1, 0) == 1 && (end.revents & POLLERR) != 0;
}

// Like fork; this process has one thread. The C library's own forgets nothing that
// matters here: no lock is held, and the child runs no handlers of anybody.
pid_t forkInto(int namespaces) {
  if (namespaces == 0) return ::fork();
  return static_cast<pid_t>(
      ::syscall(SYS_clone, static_cast<unsigned long>(namespaces | SIGCHLD), 0, 0, 0, 0));
}

// In the child.
void prepare(const Child::Setup& setup, int report) {
  // Asked for with the parent's death signal: it may have died before.
  if (::prctl(PR_SET_PDEATHSIG, setup.deathSignal) != 0 || isDeaf(report)) ::_exit(kExitSystem);
  if ((setup.standardInput >= 0 && ::dup2(setup.standardInput, 0) != 0) ||
      (setup.standardOutput >= 0 && ::dup2(setup.standardOutput, 1) != 1) ||
      (setup.standardError >= 0 && ::dup2(setup.standardError, 2) != 2) ||
      (setup.inherited >= 0 && ::fcntl(setup.inherited, F_SETFD, 0) != 0))
    throw systemFailure(kExitSystem, "cannot set up stock rsync");
  if (setup.enclosure != nullptr) setup.enclosure->enter();
}

[[noreturn]] void runStock(char* const* argv, const SignalsHeld& signals) {
  signals.release();
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  ::sigaction(SIGPIPE, &action, nullptr);
  ::execv(argv[0], argv);
  throw systemFailure(kExitSystem, std::string("cannot run ") + argv[0]);
}

// Of this single-threaded process, adopted ones too.
void terminateChildren() {
  const std::string self = std::to_string(::getpid());
  std::ifstream list("/proc/" + self + "/task/" + self + "/children");
  pid_t child = 0;
  while (list >> child) ::kill(child, SIGTERM);
}

}  // namespace

SignalsHeld::SignalsHeld() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;  // an inherited "ignore" would make the child unwaitable
  ::sigaction(SIGCHLD, &action, &childBefore_);
  ::sigemptyset(&held_);
  for (const int number : kHeldSignals) ::sigaddset(&held_, number);
  ::sigprocmask(SIG_BLOCK, &held_, &before_);
}

SignalsHeld::~SignalsHeld() { release(); }

void SignalsHeld::release() const {
  ::sigaction(SIGCHLD, &childBefore_, nullptr);
  ::sigprocmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<int> SignalsHeld::next(std::chrono::milliseconds span) const {
  const timespec wait{static_cast<time_t>(span.count() / 1000),
                      static_cast<long>(span.count() % 1000) * 1000000L};
  const int number = ::sigtimedwait(&held_, nullptr, &wait);
  return number > 0 ? std::optional<int>(number) : std::nullopt;
}

std::optional<int> SignalsHeld::next() const {
  const int number = ::sigwaitinfo(&held_, nullptr);
  return number > 0 ? std::optional<int>(number) : std::nullopt;
}

void ignoreBrokenPipes() {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
}

Child::Child(const Setup& setup, const SignalsHeld& signals) {
  std::vector<std::string> words;
  if (!setup.task) {
    words = stockCommand();
    words.insert(words.end(), setup.arguments.begin(), setup.arguments.end());
  }
  const std::vector<char*> argv = host::pointersTo(words);
  host::FdPair report = makePipe();

  // Receiving is two processes. The second, which writes the files, would be
  // nobody's child when the first dies before it, and still hold files open when
  // the caller wants to unmount their file system.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  pid_ = forkInto(setup.enclosure == nullptr ? 0 : Enclosure::namespaces());
  if (pid_ < 0) throw systemFailure(kExitSystem, "cannot start a process");
  if (pid_ == 0) {
    report.first.reset();
    try {
      prepare(setup, report.second.get());
      if (!setup.task) runStock(argv.data(), signals);
      report.second.reset();
      ::_exit(setup.task());
    } catch (const Failure& failure) {
      reportFailure(report.second.get(), failure);
    } catch (const std::exception& error) {
      reportFailure(report.second.get(), {kExitSystem, error.what()});
    }
    ::_exit(kExitSystem);
  }

  report.second.reset();
  try {
    readReport(report.first.get());
  } catch (const Failure&) {
    ::waitpid(pid_, nullptr, 0);
    throw;
  }
}

Child::~Child() {
  if (pid_ <= 0 || childStatus_) return;
  ::kill(pid_, SIGKILL);
  while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

std::optional<int> Child::ended() {
  int status = 0;
  pid_t pid = 0;
  while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
    if (pid == pid_) childStatus_ = status;
  }
  if (!childStatus_) return std::nullopt;
  if (pid < 0 && errno == ECHILD) {
    status_ = childStatus_;
  } else {
    terminateChildren();  // a receiver goes on when its generator was killed
  }
  return status_;
}

void Child::signal(int number) const {
  if (!childStatus_) ::kill(pid_, number);
}

int exitLike(int waitStatus) {
  if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
  const int number = WTERMSIG(waitStatus);
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);  // one core file, stock rsync's, is enough
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  ::sigaction(number, &action, nullptr);
  sigset_t only;
  ::sigemptyset(&only);
  ::sigaddset(&only, number);
  ::sigprocmask(SIG_UNBLOCK, &only, nullptr);
  ::raise(number);
  return 128 + number;
}

int ownStatus(int stockStatus) { return stockStatus == kExitVanished ? kExitPartial : stockStatus; }

int supervise(Child& child, const SignalsHeld& signals) {
  std::optional<int> status;
  while (!(status = child.ended())) {
    const std::optional<int> signal = signals.next();
    if (signal && *signal != SIGCHLD) child.signal(*signal);
  }
  return exitLike(*status);
}

}  // namespace qxrsync
