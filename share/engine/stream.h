#ifndef QX_SHARE_ENGINE_STREAM_H
#define QX_SHARE_ENGINE_STREAM_H

#include <chrono>
#include <cstddef>
#include <string_view>

namespace engine {

/// Thrown by what waits for a stream when it is interrupted.
struct Interrupted {};

/// Bytes from and to the other end. One thread reads while another one writes.
class Stream {
 public:
  Stream() = default;
  virtual ~Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Writes everything. How long it waited for the other end, or the way there, to
  /// take more. Throws Failure (status 12) when no more is taken.
  virtual std::chrono::nanoseconds write(std::string_view bytes) = 0;

  /// Between one byte and count of them; 0 at the end of the stream. Throws Interrupted
  /// while it waits and the descriptor `interrupted` is readable, and Failure (status 12).
  virtual size_t read(char* to, size_t count, int interrupted) = 0;

  /// To be called by the end that speaks last, after its last word: comes back when the
  /// other end has that, or after ten seconds.
  virtual void finish() {}
};

/// Over two descriptors, which are not owned and may be one.
class PlainStream : public Stream {
 public:
  PlainStream(int in, int out) : in_(in), out_(out) {}

  std::chrono::nanoseconds write(std::string_view bytes) override;
  size_t read(char* to, size_t count, int interrupted) override;

 private:
  int in_;
  int out_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_STREAM_H
