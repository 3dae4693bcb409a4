#include "support/failing_call.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "support/child_test.h"

namespace test_support {

void failSystemCall(long number, int error, std::optional<CallArgument> argument) {
  const std::uint32_t nr = offsetof(seccomp_data, nr);
  const std::uint32_t arg =
      offsetof(seccomp_data, args) + (argument ? argument->index : 0) * sizeof(std::uint64_t);
  const std::uint32_t fail =
      SECCOMP_RET_ERRNO | (static_cast<std::uint32_t>(error) & SECCOMP_RET_DATA);
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, nr),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, arg),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, argument ? argument->value : 0, 0,
               static_cast<std::uint8_t>(argument ? 1 : 0)),
      BPF_STMT(BPF_RET | BPF_K, fail),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program{sizeof(filter) / sizeof(filter[0]), filter};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    throw Unavailable{std::string("system call filters: ") + std::strerror(errno)};
  }
}

}  // namespace test_support
