#include "share/rsync/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <string>

#include "share/rsync/argument_vector.h"
#include "share/rsync/descriptor.h"
#include "share/rsync/failure.h"
#include "share/rsync/stock.h"

namespace qxrsync {

namespace {

constexpr std::array<int, 4> kHeldSignals = {SIGCHLD, SIGHUP, SIGINT, SIGTERM};

// In the child, after fork: only async-signal-safe calls. Ends with errno in
// the report pipe if exec fails.
[[noreturn]] void runStock(const char* path, char* const* argv, const Child::Setup& setup,
                           const SignalsHeld& signals, pid_t parent, int report) {
  bool ready = ::prctl(PR_SET_PDEATHSIG, setup.deathSignal) == 0;
  if (::getppid() != parent) ::_exit(kExitSystem);  // died before it could be asked
  if (setup.standardInput >= 0) ready = ready && ::dup2(setup.standardInput, 0) == 0;
  if (setup.standardOutput >= 0) ready = ready && ::dup2(setup.standardOutput, 1) == 1;
  if (setup.inherited >= 0) ready = ready && ::fcntl(setup.inherited, F_SETFD, 0) == 0;
  if (ready) {
    signals.release();
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &action, nullptr);
    ::execv(path, argv);
  }
  const int error = errno;
  if (::write(report, &error, sizeof error) < 0) ::_exit(kExitSystem);
  ::_exit(kExitSystem);
}

// Of this single-threaded process, adopted ones too.
void terminateChildren() {
  const std::string self = std::to_string(::getpid());
  std::ifstream list("/proc/" + self + "/task/" + self + "/children");
  for (pid_t child = 0; list >> child;) ::kill(child, SIGTERM);
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
  std::vector<std::string> words = stockCommand();
  const std::string path = words.front();
  words.erase(words.begin());
  words.insert(words.end(), setup.arguments.begin(), setup.arguments.end());
  const ArgumentVector argv(path, words);
  DescriptorPair report = makePipe();

  // Receiving is two processes. The second, which writes the files, would be
  // nobody's child when the first dies before it, and still hold files open when
  // the caller wants to unmount their file system.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) throw systemFailure(kExitSystem, "cannot fork");
  if (pid_ == 0) runStock(path.c_str(), argv.data(), setup, signals, parent, report.second.get());

  report.second.close();
  int error = 0;
  ssize_t count = 0;
  do {
    count = ::read(report.first.get(), &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  if (count == 0) return;  // closed by exec

  ::waitpid(pid_, nullptr, 0);
  errno = error;
  throw systemFailure(kExitSystem, "cannot run " + path);
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
  if (WIFEXITED(waitStatus)) {
    const int status = WEXITSTATUS(waitStatus);
    return status == kExitVanished ? kExitPartial : status;
  }
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

int supervise(Child& child, const SignalsHeld& signals) {
  std::optional<int> status;
  while (!(status = child.ended())) {
    const std::optional<int> signal = signals.next();
    if (signal && *signal != SIGCHLD) child.signal(*signal);
  }
  return exitLike(*status);
}

}  // namespace qxrsync
