#include "node/confine.h"

#include <asm/ioctls.h>
#include <linux/capability.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>

#include "host/error.h"
#include "node/host.h"

namespace node {
namespace {

/// What a script that edits a system's files needs: their owners and modes, set-id bits
/// and capabilities of files, running a program as one of the system's users, in a root
/// below its own.
constexpr std::array kKeptCapabilities{CAP_CHOWN,  CAP_DAC_OVERRIDE, CAP_FOWNER,  CAP_FSETID,
                                       CAP_SETUID, CAP_SETGID,       CAP_SETFCAP, CAP_SYS_CHROOT};

constexpr std::array kForbiddenCalls{
    // Programs in the kernel and views into it.
    "bpf", "perf_event_open", "userfaultfd", "lookup_dcookie", "syslog", "kcmp",
    // Rings that run calls past this filter.
    "io_uring_setup", "io_uring_enter", "io_uring_register",
    // Keys belong to users of the whole machine.
    "add_key", "request_key", "keyctl",
    // Mounts, by the old calls and by the new ones.
    "mount", "umount", "umount2", "pivot_root", "open_tree", "move_mount", "fsopen", "fsconfig",
    "fsmount", "fspick", "mount_setattr", "swapon", "swapoff", "quotactl", "quotactl_fd",
    "nfsservctl",
    // Namespaces; clone is looked at below.
    "unshare", "setns",
    // The kernel itself.
    "kexec_load", "kexec_file_load", "init_module", "finit_module", "create_module",
    "delete_module", "query_module", "get_kernel_syms", "reboot", "acct", "iopl", "ioperm",
    // Names and clocks.
    "sethostname", "setdomainname", "settimeofday", "stime", "clock_settime", "clock_adjtime",
    "adjtimex",
    // Other processes.
    "ptrace", "process_vm_readv", "process_vm_writev", "process_madvise", "pidfd_getfd",
    "move_pages", "migrate_pages",
    // Files past their paths, and watching whole file systems.
    "name_to_handle_at", "open_by_handle_at", "fanotify_init", "vhangup", "uselib"};

struct ReleaseFilter {
  using pointer = scmp_filter_ctx;
  void operator()(scmp_filter_ctx filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, ReleaseFilter>;

void check(int result, const char* what) {
  // A call that this architecture never had needs no rule.
  if (result == 0 || result == -EDOM) return;
  errno = -result;
  failErrno("cannot make the system call filter (%s)", what);
}

void forbid(const Filter& filter, const char* call, int error = EPERM) {
  const int number = seccomp_syscall_resolve_name(call);
  // One that only newer tables know is not there to be called by that name either.
  if (number == __NR_SCMP_ERROR) return;
  check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(static_cast<uint16_t>(error)), number, 0),
        call);
}

void dropCapabilities() {
  for (int capability = 0; prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
    bool kept = false;
    for (const int one : kKeptCapabilities) kept = kept || one == capability;
    if (!kept && prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
      failErrno("cannot drop capability %d", capability);
    }
  }
  // Kernels before 4.3 have none to clear.
  if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0 && errno != EINVAL) {
    failErrno("cannot clear the ambient capabilities");
  }
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
  for (const int capability : kKeptCapabilities) {
    const auto word = static_cast<size_t>(CAP_TO_INDEX(capability));
    data.at(word).effective |= CAP_TO_MASK(capability);
    data.at(word).permitted |= CAP_TO_MASK(capability);
  }
  if (syscall(SYS_capset, &header, data.data()) != 0) failErrno("cannot drop capabilities");
}

Filter makeFilter() {
  Filter filter(seccomp_init(SCMP_ACT_ALLOW));
  if (!filter) fail(ExitCode::kFailed, "cannot make the system call filter");
  // What runs here may be an older system of 32 bits.
  if (seccomp_arch_native() == SCMP_ARCH_X86_64) {
    check(seccomp_arch_add(filter.get(), SCMP_ARCH_X86), "32-bit programs");
  }
  check(seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ERRNO(ENOSYS)),
        "other architectures");
  for (const char* call : kForbiddenCalls) forbid(filter, call);
  // Its flags lie in memory, where no filter sees them. The C library goes back to clone.
  forbid(filter, "clone3", ENOSYS);
  for (const uint64_t flag : {CLONE_NEWNS, CLONE_NEWUTS, CLONE_NEWIPC, CLONE_NEWUSER, CLONE_NEWPID,
                              CLONE_NEWNET, CLONE_NEWCGROUP}) {
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1,
                           SCMP_A0(SCMP_CMP_MASKED_EQ, flag, flag)),
          "clone");
  }
  // The kernel looks at 32 bits of an ioctl's number.
  for (const uint64_t request : {uint64_t{TIOCSTI}, uint64_t{TIOCLINUX}}) {
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(ioctl), 1,
                           SCMP_A1(SCMP_CMP_MASKED_EQ, 0xffffffffu, request)),
          "ioctl");
  }
  return filter;
}

}  // namespace

void confine() {
  dropCapabilities();
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) failErrno("cannot give up new privileges");
  check(seccomp_load(makeFilter().get()), "loading it");
}

}  // namespace node
