#include "agent/system/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "host/descriptors.h"
#include "host/process.h"

namespace agent {

namespace {

// Runs between fork and exec: async-signal-safe calls only. Returns an errno
// value when it fails.
int prepareAndExec(char* const* argv, const ChildOptions& options, pid_t parent) {
  const auto& streams = options.streams;
  if (options.ownGroup) setpgid(0, 0);
  if (options.dieWithParent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
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

struct Program {
  char* const* argv;
  const ChildOptions& options;
  int report;
};

void runProgram(const void* context, pid_t starter) {
  const auto& program = *static_cast<const Program*>(context);
  // The pipe must survive the wiring of descriptors 0 to 2.
  const int reporter = fcntl(program.report, F_DUPFD_CLOEXEC, 3);
  const int failure = prepareAndExec(program.argv, program.options, starter);
  [[maybe_unused]] const ssize_t written = write(reporter, &failure, sizeof failure);
  _exit(127);
}

}  // namespace

Child::~Child() {
  if (!started() || ended_) return;
  signalGroup(SIGKILL);
  endStarter(starter_);
}

int Child::start(const std::vector<std::string>& argv, const ChildOptions& options) {
  const std::vector<char*> pointers = host::pointersTo(argv);

  // A failed exec is told through a pipe that a good one closes.
  host::FdPair report = host::makePipe();
  if (!report) return errno;

  const Program program{pointers.data(), options, report.second.get()};
  if (const int error = startByStarter(runProgram, &program, options.dieWithParent, starter_)) {
    return error;
  }
  report.second.reset();
  // Whoever is first: the group exists before anyone signals it.
  if (options.ownGroup) setpgid(starter_.program, starter_.program);

  int failure = 0;
  ssize_t count;
  while ((count = read(report.first.get(), &failure, sizeof failure)) < 0 && errno == EINTR) {
  }
  if (count == sizeof failure) {
    endStarter(starter_);
    return failure;
  }
  pid_ = starter_.program;
  ownGroup_ = options.ownGroup;
  ended_ = false;
  return 0;
}

bool Child::poll() {
  if (ended_ || !started()) return true;
  ssize_t count;
  while ((count = recv(starter_.status, &status_, sizeof status_, MSG_DONTWAIT)) < 0 &&
         errno == EINTR) {
  }
  if (count < 0 && errno == EAGAIN) return false;
  // Someone killed the starter; how the program ended, or will, is not known.
  if (count != sizeof status_) status_ = 127 << 8;
  endStarter(starter_);
  ended_ = true;
  return true;
}

void Child::signalGroup(int signal) const {
  if (started() && !ended_) kill(ownGroup_ ? -pid_ : pid_, signal);
}

}  // namespace agent
