#include "agent/system/starter.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "host/descriptors.h"

namespace agent {

namespace {

// The C library's fork would take locks that other threads may hold. With everything
// else 0, the order of the arguments, which differs between architectures, is no matter.
pid_t cloneWith(unsigned long exitSignal) {
  return static_cast<pid_t>(syscall(SYS_clone, exitSignal, 0, 0, 0, 0));
}

int waitStatus(const siginfo_t& info) {
  switch (info.si_code) {
    case CLD_EXITED:
      return info.si_status << 8;
    case CLD_DUMPED:
      return info.si_status | 0x80;
    default:
      return info.si_status;
  }
}

[[noreturn]] void runStarter(void (*program)(const void*, pid_t), const void* context, int report) {
  const pid_t self = getpid();
  pid_t child = cloneWith(SIGCHLD);
  if (child == 0) {
    program(context, self);
    _exit(127);
  }
  if (child < 0) child = -errno;
  // A descriptor that stayed open here would keep pipes and connections from ending.
  host::closeAllBut({report});
  if (send(report, &child, sizeof child, MSG_NOSIGNAL) != sizeof child || child < 0) _exit(0);
  siginfo_t info{};
  while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
  }
  const int status = waitStatus(info);
  char nothing;
  // Until the other end is closed, the zombie keeps its process id from being used anew.
  if (send(report, &status, sizeof status, MSG_NOSIGNAL) == sizeof status) {
    while (read(report, &nothing, 1) < 0 && errno == EINTR) {
    }
  }
  waitpid(child, nullptr, 0);
  _exit(0);
}

}  // namespace

int startByStarter(void (*program)(const void* context, pid_t starter), const void* context,
                   bool dieWithParent, Started& started) {
  host::FdPair ends = host::makeSocketPair();
  if (!ends) return errno;
  const pid_t parent = getpid();
  // What is sent to the whole group must not end the starter before its program.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t starter = cloneWith(0);
  const int cloneError = errno;
  if (starter == 0) {
    if (dieWithParent) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() != parent) _exit(0);
    }
    runStarter(program, context, ends.second.get());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (starter < 0) return cloneError;
  ends.second.reset();
  started = {starter, 0, ends.first.release()};
  ssize_t count;
  while ((count = read(started.status, &started.program, sizeof started.program)) < 0 &&
         errno == EINTR) {
  }
  if (count == sizeof started.program && started.program > 0) return 0;
  const int error = count == sizeof started.program ? -started.program : ECHILD;
  endStarter(started);
  return error;
}

void endStarter(Started& started) {
  close(started.status);
  while (waitpid(started.starter, nullptr, __WALL) < 0 && errno == EINTR) {
  }
  started = {};
}

}  // namespace agent
