// A file descriptor with an owner.
#ifndef QX_HOST_FD_H
#define QX_HOST_FD_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace host {

/// Owns one descriptor and closes it when it goes out of scope or is assigned
/// to. -1 means none. Closing leaves errno alone.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Gives the descriptor away: nobody closes it here any more.
  int release() { return std::exchange(fd_, -1); }
  /// Owns `fd` from now on.
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      const int number = errno;
      close(fd_);
      errno = number;
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace host

#endif
