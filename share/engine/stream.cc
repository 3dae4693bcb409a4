#include "share/engine/stream.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "share/rsync/failure.h"

namespace engine {

namespace {

using Clock = std::chrono::steady_clock;

void waitFor(int fd, short events) {
  pollfd wanted{fd, events, 0};
  ::poll(&wanted, 1, -1);
}

}  // namespace

// Most of the time that such a write takes is spent waiting, as the descriptor blocks.
std::chrono::nanoseconds PlainStream::write(std::string_view bytes) {
  const Clock::time_point began = Clock::now();
  while (!bytes.empty()) {
    const ssize_t count = ::write(out_, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      waitFor(out_, POLLOUT);
    } else if (errno != EINTR) {
      throw qxrsync::systemFailure(qxrsync::kExitProtocol, "cannot write to the data channel");
    }
  }
  return Clock::now() - began;
}

size_t PlainStream::read(char* to, size_t count, int interrupted) {
  while (true) {
    pollfd wanted[] = {{in_, POLLIN, 0}, {interrupted, POLLIN, 0}};
    ::poll(wanted, 2, -1);
    if (wanted[1].revents != 0) throw Interrupted{};
    const ssize_t got = ::read(in_, to, count);
    if (got >= 0) return static_cast<size_t>(got);
    if (errno == ECONNRESET) return 0;
    if (errno != EINTR && errno != EAGAIN)
      throw qxrsync::systemFailure(qxrsync::kExitProtocol, "cannot read from the data channel");
  }
}

}  // namespace engine
