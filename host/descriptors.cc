#include "host/descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <algorithm>
#include <climits>

namespace host {
namespace {

void closeRange(unsigned first, unsigned last) {
  if (syscall(SYS_close_range, first, last, 0) == 0) return;
  // A kernel before 5.9.
  constexpr rlim_t kMost = 65536;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) limit.rlim_cur = kMost;
  const auto end = static_cast<unsigned>(std::min(limit.rlim_cur, kMost));
  for (unsigned fd = first; fd < end && fd <= last; ++fd) close(static_cast<int>(fd));
}

}  // namespace

FdPair makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  return {Fd(ends[0]), Fd(ends[1])};
}

FdPair makeSocketPair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return {};
  return {Fd(ends[0]), Fd(ends[1])};
}

void closeAllBut(std::initializer_list<int> kept, int first) {
  constexpr unsigned kNone = UINT_MAX;
  for (auto from = static_cast<unsigned>(first);;) {
    unsigned next = kNone;
    for (const int fd : kept) {
      const auto number = static_cast<unsigned>(fd);
      if (fd >= 0 && number >= from) next = std::min(next, number);
    }
    if (next > from) closeRange(from, next - 1);
    if (next == kNone) return;
    from = next + 1;
  }
}

}  // namespace host
