#include "agent/system/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

namespace agent {

namespace {

// Runs between fork and exec: async-signal-safe calls only. Returns an errno
// value when it fails.
int prepareAndExec(char* const* argv, const ChildOptions& options, pid_t parent) {
  const auto& streams = options.streams;
  if (options.ownGroup) setpgid(0, 0);
  if (options.dieWithParent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) raise(SIGKILL);
  }
  // Move the wired descriptors out of the way of 0 to 2 first, so that no dup2
  // overwrites one that is still needed.
  int wired[3];
  for (int i = 0; i < 3; ++i) {
    if (streams[i] < 0) {
      wired[i] = open("/dev/null", i == 0 ? O_RDONLY : O_WRONLY);
    } else {
      wired[i] = fcntl(streams[i], F_DUPFD_CLOEXEC, 3);
      // Only the standard stream is to reach the program, not the original too.
      if (wired[i] >= 0 && streams[i] > 2) fcntl(streams[i], F_SETFD, FD_CLOEXEC);
    }
    if (wired[i] >= 0 && wired[i] < 3) {
      const int moved = fcntl(wired[i], F_DUPFD_CLOEXEC, 3);
      close(wired[i]);
      wired[i] = moved;
    }
    if (wired[i] < 0) return errno;
  }
  for (int i = 0; i < 3; ++i) {
    if (dup2(wired[i], i) < 0) return errno;
    close(wired[i]);
  }
  struct sigaction defaults = {};
  defaults.sa_handler = SIG_DFL;
  for (const int signal : {SIGPIPE, SIGCHLD, SIGINT, SIGTERM, SIGHUP}) {
    sigaction(signal, &defaults, nullptr);
  }
  if (!options.ownGroup) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP}) sigaction(signal, &ignore, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execvp(argv[0], argv);  // the plug-in calls some tools by name
  return errno;
}

}  // namespace

Child::~Child() {
  if (!started() || ended_) return;
  signalGroup(SIGKILL);
  while (waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
  }
}

int Child::start(const std::vector<std::string>& argv, const ChildOptions& options) {
  std::vector<char*> pointers;
  for (const std::string& word : argv) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);

  // A failed exec is told through a pipe that a good one closes.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return errno;
  UniqueFd reportRead(report[0]), reportWrite(report[1]);

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) return errno;
  if (pid == 0) {
    // The pipe must survive the wiring of descriptors 0 to 2.
    const int reporter = fcntl(reportWrite.get(), F_DUPFD_CLOEXEC, 3);
    const int failure = prepareAndExec(pointers.data(), options, parent);
    [[maybe_unused]] const ssize_t written = write(reporter, &failure, sizeof failure);
    _exit(127);
  }
  reportWrite.reset();
  if (options.ownGroup)
    setpgid(pid, pid);  // whoever is first: the group exists before anyone signals it

  int failure = 0;
  ssize_t count;
  while ((count = read(reportRead.get(), &failure, sizeof failure)) < 0 && errno == EINTR) {
  }
  if (count == sizeof failure) {
    int status;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return failure;
  }
  pid_ = pid;
  ownGroup_ = options.ownGroup;
  ended_ = false;
#ifdef SYS_pidfd_open
  pidfd_.reset(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
#endif
  return 0;
}

bool Child::poll() {
  if (ended_ || !started()) return true;
  pid_t result;
  while ((result = waitpid(pid_, &status_, WNOHANG)) < 0 && errno == EINTR) {
  }
  if (result == 0) return false;
  // A process that someone else reaped has ended, too; how is not known.
  if (result < 0) status_ = 127 << 8;
  ended_ = true;
  return true;
}

void Child::signalGroup(int signal) const {
  if (pid_ > 0) kill(ownGroup_ ? -pid_ : pid_, signal);
}

}  // namespace agent
