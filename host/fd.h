// A file descriptor with an owner.
#ifndef QX_HOST_FD_H
#define QX_HOST_FD_H

#include <unistd.h>

#include <utility>

namespace host {

/// Owns one descriptor and closes it when it goes out of scope or is assigned
/// to. -1 means none. Closing leaves errno alone.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    other.reset();
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset();

 private:
  int fd_ = -1;
};

}  // namespace host

#endif
