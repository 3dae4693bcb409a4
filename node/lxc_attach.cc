// Commands inside running containers.
#include <lxc/attach_options.h>
#include <lxc/lxccontainer.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>

#include "host/error.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/state.h"
#include "host/text.h"
#include "node/lxc_config.h"
#include "node/lxc_engine.h"
#include "node/lxc_handle.h"
#include "node/run_record.h"

namespace node {
namespace {

/// Holds back what a user presses, or sends to qxctl, to pass it on to the command.
class HeldSignals {
 public:
  HeldSignals() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGCHLD}) {
      sigaddset(&signals_, signal);
    }
    sigprocmask(SIG_BLOCK, &signals_, &before_);
  }
  ~HeldSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  /// The next one, or nothing (0) after a second or the end of a child process.
  int next() const {
    const timespec second{1, 0};
    const int signal = sigtimedwait(&signals_, nullptr, &second);
    return signal == SIGCHLD ? 0 : std::max(signal, 0);
  }

 private:
  sigset_t signals_, before_;
};

int waitFor(pid_t pid) {
  const HeldSignals held;
  for (;;) {
    int status = 0;
    const pid_t ended = waitpid(pid, &status, WNOHANG);
    if (ended == pid) return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    if (ended < 0 && errno != EINTR) failErrno("cannot wait for the command");
    if (const int signal = held.next()) kill(pid, signal);
  }
}

/// A command on its way into a container, seen by all processes that LXC makes of this one.
struct Journey {
  lxc_attach_command_t command;
  bool hasTerminal;
  pid_t pid;     ///< as LXC gives it, 0 until then
  bool arrived;  ///< that the rest is the command's own doing
};

/// What LXC calls in the process that has come into the container.
int enter(void* given) {
  Journey& journey = *static_cast<Journey*>(given);
  // A program in a container that has the terminal of who started it can type there, and so
  // run what it likes outside. One that leads a session of its own has none, also not
  // under the name /dev/tty.
  if (!journey.hasTerminal && setsid() < 0 && getsid(0) != getpid()) return 1;
  journey.arrived = true;
  return lxc_attach_run_command(&journey.command);
}

bool hasTerminal() {
  return isatty(STDIN_FILENO) != 0 || isatty(STDOUT_FILENO) != 0 || isatty(STDERR_FILENO) != 0;
}

int attach(const Container& container, const std::vector<std::string>& command) {
  requireRunning(container.id);
  std::vector<char*> argv = pointersTo(command);
  const char* term = getenv("TERM");
  const std::vector<std::string> environment{
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
      "USER=root", textf("TERM=%s", term == nullptr ? "dumb" : term)};
  std::vector<char*> pointers = pointersTo(environment);

  lxc_attach_options_t options = LXC_ATTACH_OPTIONS_DEFAULT;
  options.env_policy = LXC_ATTACH_CLEAR_ENV;
  options.extra_env_vars = pointers.data();
  options.initial_cwd = const_cast<char*>("/root");
  // One of its own takes the place of ours, wherever that is its input or output.
  const bool terminal = hasTerminal();
  if (terminal) options.attach_flags |= LXC_ATTACH_TERMINAL;
  void* shared =
      mmap(nullptr, sizeof(Journey), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) failErrno("cannot get memory");
  Journey& journey = *new (shared) Journey{{argv[0], argv.data()}, terminal, 0, false};
  // When the container ends meanwhile, LXC 5 ends the process that called it, without a word.
  // So another one does, which leaves the command to this one.
  if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) failErrno("cannot adopt processes");
  const LxcHandle lxc = openLxc(container.id);
  const pid_t self = getpid();
  const pid_t helper = fork();
  if (helper < 0) failErrno("cannot start a process");
  if (helper == 0) {
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != self) _exit(1);
    pid_t attached = 0;
    if (lxc->attach(lxc.get(), enter, &journey, &options, &attached) == 0) journey.pid = attached;
    _exit(0);
  }
  while (waitpid(helper, nullptr, 0) < 0 && errno == EINTR) continue;
  // Once: what has arrived may write there, and no child of this process is anybody else.
  const pid_t pid = journey.pid;
  const int status = pid > 0 ? waitFor(pid) : 0;
  if (!journey.arrived) {
    fail(ExitCode::kFailed, "cannot run %s in container %u: LXC does not get it there, see %s",
         argv[0], container.id, lxcPlace(container.id, kLxcLog).c_str());
  }
  return status;
}

}  // namespace

void requireRunning(unsigned id) {
  if (!runningInit(id)) fail(ExitCode::kNotRunning, "container %u is not running", id);
}

LxcHandle openLxc(unsigned id) {
  LxcHandle lxc(lxc_container_new(lxcName(id).c_str(), lxcDirectory().c_str()));
  if (!lxc) fail(ExitCode::kFailed, "liblxc gives no handle of container %u", id);
  return lxc;
}

int execInContainer(const Container& container, const std::vector<std::string>& command) {
  return attach(container, command);
}

int enterContainer(const Container& container) {
  return attach(container, {"/bin/sh", "-c", "exec \"$(command -v bash || command -v sh)\" -l"});
}

}  // namespace node
