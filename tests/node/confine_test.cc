// Programs in the copied system that try to reach past it. Each is this test itself,
// copied into the tree, so that it needs nothing from there.
#include "node/confine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;

// What a child process that has been confined sees when it calls `action`.
int errnoOf(const std::function<long()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    node::confine();
    errno = 0;
    const long result = action();
    _exit(result < 0 ? errno : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

struct Attempt {
  const char* what;
  long number;
  long arguments[4];
  int error;
};

TEST(Confine, ForbidsTheCallsThatReachPastTheNamespaces) {
  ScratchHost().run([] {
    const Attempt attempts[] = {
        {"bpf", SYS_bpf, {0, 0, 0, 0}, EPERM},
        {"perf_event_open", SYS_perf_event_open, {0, 0, 0, 0}, EPERM},
        {"userfaultfd", SYS_userfaultfd, {0, 0, 0, 0}, EPERM},
        {"keyctl", SYS_keyctl, {0, -3, 0, 0}, EPERM},
        {"io_uring_setup", SYS_io_uring_setup, {1, 0, 0, 0}, EPERM},
        {"mount", SYS_mount, {0, 0, 0, 0}, EPERM},
        {"fsopen", SYS_fsopen, {0, 0, 0, 0}, EPERM},
        {"mount_setattr", SYS_mount_setattr, {0, 0, 0, 0}, EPERM},
        {"unshare", SYS_unshare, {CLONE_NEWUSER, 0, 0, 0}, EPERM},
        {"setns", SYS_setns, {0, 0, 0, 0}, EPERM},
        {"clone", SYS_clone, {CLONE_NEWUSER | SIGCHLD, 0, 0, 0}, EPERM},
        {"clone3", SYS_clone3, {0, 0, 0, 0}, ENOSYS},
        {"ptrace", SYS_ptrace, {PTRACE_TRACEME, 0, 0, 0}, EPERM},
        {"process_vm_readv", SYS_process_vm_readv, {1, 0, 0, 0}, EPERM},
        {"open_by_handle_at", SYS_open_by_handle_at, {0, 0, 0, 0}, EPERM},
        {"kexec_load", SYS_kexec_load, {0, 0, 0, 0}, EPERM},
        {"finit_module", SYS_finit_module, {0, 0, 0, 0}, EPERM},
        {"TIOCSTI", SYS_ioctl, {0, 0x5412, 0, 0}, EPERM},
        {"TIOCSTI beyond 32 bits", SYS_ioctl, {0, 0x100005412, 0, 0}, EPERM},
    };
    for (const Attempt& attempt : attempts) {
      EXPECT_EQ(errnoOf([&] {
                  return syscall(attempt.number, attempt.arguments[0], attempt.arguments[1],
                                 attempt.arguments[2], attempt.arguments[3]);
                }),
                attempt.error)
          << attempt.what;
    }
  });
}

TEST(Confine, LeavesWhatProgramsNeed) {
  ScratchHost().run([] {
    EXPECT_EQ(errnoOf([] {
                const pid_t child = fork();
                if (child == 0) _exit(0);
                int status = -1;
                return waitpid(child, &status, 0) == child && status == 0 ? 0 : -1;
              }),
              0);
    EXPECT_EQ(errnoOf([] { return chown("/tmp", 5, 5); }), 0);
    EXPECT_EQ(errnoOf([] { return chroot("/tmp"); }), 0);
    EXPECT_EQ(errnoOf([] { return setgid(5) + setuid(5); }), 0);
  });
}

TEST(Confine, KeepsTheCapabilitiesOfEditingFilesOnlyAndGetsNoneBack) {
  ScratchHost().run([] {
    EXPECT_EQ(errnoOf([]() -> long {
                if (prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) != 1) return -1;
                __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
                __user_cap_data_struct data[2]{};
                if (syscall(SYS_capget, &header, data) != 0) return -1;
                const unsigned kept = 1u << CAP_CHOWN | 1u << CAP_DAC_OVERRIDE | 1u << CAP_FOWNER |
                                      1u << CAP_FSETID | 1u << CAP_SETUID | 1u << CAP_SETGID;
                const unsigned all = kept | 1u << CAP_SYS_CHROOT | 1u << CAP_SETFCAP;
                errno = ERANGE;
                if (data[0].effective != all || data[0].permitted != all) return -1;
                if (data[1].permitted != 0 || data[0].inheritable != 0) return -1;
                return prctl(PR_CAPBSET_READ, CAP_SYS_ADMIN, 0, 0, 0) == 0 ? 0 : -1;
              }),
              0);
  });
}

}  // namespace
