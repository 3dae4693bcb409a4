#include "share/rsync/descriptor.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "share/rsync/failure.h"

namespace qxrsync {

host::FdPair makePipe() {
  host::FdPair ends = host::makePipe();
  if (!ends) throw systemFailure(kExitSystem, "cannot create a pipe");
  return ends;
}

host::FdPair makeSocketPair() {
  host::FdPair ends = host::makeSocketPair();
  if (!ends) throw systemFailure(kExitSystem, "cannot create a socket pair");
  return ends;
}

void endWriting(host::Fd& fd) {
  if (fd) ::shutdown(fd.get(), SHUT_WR);  // fails on a pipe, where closing is enough
  fd.reset();
}

void ensureStandardStreams() {
  int fd = 0;
  do {
    fd = ::open("/dev/null", O_RDWR);  // the lowest free number
  } while (fd >= 0 && fd <= 2);
  if (fd > 2) ::close(fd);
}

host::Fd takeInherited(int fd, Direction direction, const char* option) {
  const std::string value = "the value '" + std::to_string(fd) + "' of " + option;
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) throw Failure(kExitSyntax, value + " is not an open file descriptor");
  const int unwanted = direction == Direction::kReading ? O_WRONLY : O_RDONLY;
  if ((flags & O_ACCMODE) == unwanted)
    throw Failure(kExitSyntax, value + " is not open for " +
                                   (direction == Direction::kReading ? "reading" : "writing"));

  host::Fd taken(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
  if (!taken) throw systemFailure(kExitSystem, "cannot duplicate a file descriptor");
  if (fd > 2) {
    ::close(fd);
  } else {
    const host::Fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null || ::dup2(null.get(), fd) < 0)
      throw systemFailure(kExitSystem, "cannot open /dev/null");
  }
  return taken;
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
