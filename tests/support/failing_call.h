#ifndef QX_TESTS_SUPPORT_FAILING_CALL_H
#define QX_TESTS_SUPPORT_FAILING_CALL_H

#include <cstdint>
#include <optional>

namespace test_support {

// Makes a system call fail from now on in this process and its children, without
// carrying it out. It cannot be taken back: use it in a runInChild or ScratchHost
// body. Throws Unavailable where the kernel or machine has no system call filters.
//
//   failSystemCall(SYS_clone, ENOMEM);
//   failSystemCall(SYS_fcntl, EPERM, CallArgument{1, F_SETFL});
//
// number    as in <sys/syscall.h>; the call that the C library really makes
// error     the errno value to fail with
// argument  only calls with this value (its low 32 bits) in this argument fail
struct CallArgument {
  unsigned index;
  std::uint32_t value;
};
void failSystemCall(long number, int error, std::optional<CallArgument> argument = std::nullopt);

}  // namespace test_support

#endif  // QX_TESTS_SUPPORT_FAILING_CALL_H
