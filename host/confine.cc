#include "host/confine.h"

#include <asm/ioctls.h>
#include <linux/capability.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>

#include "host/error.h"

namespace host {
namespace {

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

/// Of the kernel's headers; the C library lacks it: MADV_SOFT_OFFLINE.
constexpr uint64_t kSoftOffline = 101;

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

// As the library's own macros for it are C.
scmp_arg_cmp where(unsigned argument, scmp_compare compare, uint64_t one, uint64_t other = 0) {
  return {argument, compare, one, other};
}

void forbid(const Filter& filter, const char* call, int error = EPERM) {
  const int number = seccomp_syscall_resolve_name(call);
  // One that only newer tables know is not there to be called by that name either.
  if (number == __NR_SCMP_ERROR) return;
  check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(static_cast<uint16_t>(error)), number, 0),
        call);
}

void dropCapabilities(std::span<const int> keptOnes) {
  for (int capability = 0; prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
    bool kept = false;
    for (const int one : keptOnes) kept = kept || one == capability;
    if (!kept && prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
      failErrno("cannot drop capability %d", capability);
    }
  }
  // Kernels before 4.3 have none to clear.
  if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0 && errno != EINVAL) {
    failErrno("cannot clear the ambient capabilities");
  }
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> held{};
  if (syscall(SYS_capget, &header, held.data()) != 0) failErrno("cannot read capabilities");
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
  for (const int capability : keptOnes) {
    const auto word = static_cast<size_t>(CAP_TO_INDEX(capability));
    // Root of a container, who has fewer than all, keeps what there is.
    data.at(word).permitted |= CAP_TO_MASK(capability) & held.at(word).permitted;
    data.at(word).effective = data.at(word).permitted;
  }
  if (syscall(SYS_capset, &header, data.data()) != 0) failErrno("cannot drop capabilities");
}

/// Drivers, file systems and the kernel's memory are asked by these: no program that
/// copies files needs more than whether something is a terminal.
void allowFilesOnly(const Filter& filter) {
  const auto refuse = [&](int number, const char* what, int error, const scmp_arg_cmp& condition) {
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(static_cast<uint16_t>(error)), number, 1,
                           condition),
          what);
  };
  refuse(SCMP_SYS(ioctl), "ioctl", ENOTTY, where(1, SCMP_CMP_NE, TCGETS));
  refuse(SCMP_SYS(socket), "socket", EPERM, where(0, SCMP_CMP_NE, AF_UNIX));
  for (const uint64_t advice : {uint64_t{MADV_HWPOISON}, kSoftOffline}) {
    refuse(SCMP_SYS(madvise), "madvise", EPERM, where(2, SCMP_CMP_EQ, advice));
  }
}

Filter makeFilter(Use use) {
  Filter filter(seccomp_init(SCMP_ACT_ALLOW));
  if (!filter) fail(ExitCode::kFailed, "cannot make the system call filter");
  // Programs may be those of an older system of 32 bits.
  if (use == Use::kPrograms && seccomp_arch_native() == SCMP_ARCH_X86_64) {
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
                           where(0, SCMP_CMP_MASKED_EQ, flag, flag)),
          "clone");
  }
  if (use == Use::kFiles) {
    allowFilesOnly(filter);
    return filter;
  }
  // The kernel looks at 32 bits of an ioctl's number.
  for (const uint64_t request : {uint64_t{TIOCSTI}, uint64_t{TIOCLINUX}}) {
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(ioctl), 1,
                           where(1, SCMP_CMP_MASKED_EQ, 0xffffffffu, request)),
          "ioctl");
  }
  return filter;
}

}  // namespace

void confine(std::span<const int> capabilities, Use use) {
  dropCapabilities(capabilities);
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) failErrno("cannot give up new privileges");
  check(seccomp_load(makeFilter(use).get()), "loading it");
}

}  // namespace host
