#include "share/rsync/descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

bool closeRange(unsigned first, unsigned last) {
#ifdef SYS_close_range
  return first > last || ::syscall(SYS_close_range, first, last, 0U) == 0;
#else
  return first > last;
#endif
}

// For kernels without close_range.
void closeListed(const std::vector<int>& keep) {
  DIR* directory = ::opendir("/proc/self/fd");
  if (directory == nullptr) return;
  std::vector<int> found;
  while (const dirent* entry = ::readdir(directory)) {
    const int fd = std::atoi(entry->d_name);  // "." and ".." give 0, which is never closed
    if (fd > 2 && std::find(keep.begin(), keep.end(), fd) == keep.end()) found.push_back(fd);
  }
  const int own = ::dirfd(directory);
  for (const int fd : found)
    if (fd != own) ::close(fd);
  ::closedir(directory);
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

void Descriptor::close() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

void Descriptor::endWriting() {
  if (fd_ >= 0) ::shutdown(fd_, SHUT_WR);  // fails on a pipe, where closing is enough
  close();
}

DescriptorPair makePipe() {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) throw systemFailure(kExitSystem, "cannot make a pipe");
  return {Descriptor(fds[0]), Descriptor(fds[1])};
}

DescriptorPair makeSocketPair() {
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
    throw systemFailure(kExitSystem, "cannot make a socket pair");
  return {Descriptor(fds[0]), Descriptor(fds[1])};
}

void ensureStandardStreams() {
  int fd = 0;
  do {
    fd = ::open("/dev/null", O_RDWR);  // the lowest free number
  } while (fd >= 0 && fd <= 2);
  if (fd > 2) ::close(fd);
}

Descriptor takeInherited(int fd, Direction direction, const char* option) {
  const std::string value = std::string("the value ") + std::to_string(fd) + " of " + option;
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) throw Failure(kExitSyntax, value + " is not an open file descriptor");
  const int unwanted = direction == Direction::kReading ? O_WRONLY : O_RDONLY;
  if ((flags & O_ACCMODE) == unwanted)
    throw Failure(kExitSyntax, value + " is not open for " +
                                   (direction == Direction::kReading ? "reading" : "writing"));

  Descriptor taken(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
  if (!taken.open()) throw systemFailure(kExitSystem, "cannot duplicate a file descriptor");
  if (fd > 2) {
    ::close(fd);
  } else {
    const Descriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null.open() || ::dup2(null.get(), fd) < 0)
      throw systemFailure(kExitSystem, "cannot open /dev/null");
  }
  return taken;
}

void closeStrayDescriptors(int keep, int keepToo) {
  std::vector<int> kept;
  for (const int fd : {keep, keepToo})
    if (fd > 2) kept.push_back(fd);
  std::sort(kept.begin(), kept.end());

  unsigned from = 3;
  bool done = true;
  for (const int fd : kept) {
    done = done && closeRange(from, static_cast<unsigned>(fd) - 1);
    from = std::max(from, static_cast<unsigned>(fd) + 1);
  }
  done = done && closeRange(from, ~0U);
  if (!done) closeListed(kept);
}

void setNonBlocking(int fd, bool on) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ((flags & O_NONBLOCK) != 0) == on) return;
  ::fcntl(fd, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

void enlargePipe(int fd, int size) {
  const int now = ::fcntl(fd, F_GETPIPE_SZ);
  if (now >= 0 && now < size) ::fcntl(fd, F_SETPIPE_SZ, size);  // may be over the user's limit
}

}  // namespace qxrsync
