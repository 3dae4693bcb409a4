#ifndef QX_SHARE_RSYNC_DESCRIPTOR_H
#define QX_SHARE_RSYNC_DESCRIPTOR_H

#include <utility>

namespace qxrsync {

/// Owns one file descriptor and closes it.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  int get() const { return fd_; }
  bool open() const { return fd_ >= 0; }
  void close();

  /// For the writing side of a stream: the reader gets end of file even where
  /// the descriptor is a socket that somebody else holds as well.
  void endWriting();

 private:
  int fd_ = -1;
};

/// A pair of descriptors: a pipe's reading and writing end, or both ends of a
/// socketpair. Close-on-exec is set. Throws Failure.
struct DescriptorPair {
  Descriptor first;
  Descriptor second;
};
DescriptorPair makePipe();
DescriptorPair makeSocketPair();

/// Opens /dev/null on every one of descriptors 0, 1 and 2 that is closed, so
/// that no descriptor made later can be taken for a standard stream.
void ensureStandardStreams();

/// Takes over an inherited descriptor: what is returned is a close-on-exec copy
/// above 2, and the inherited number is closed (a standard stream becomes
/// /dev/null). option and value are for the message of a descriptor that is not
/// open, or not open in the wanted direction. Throws Failure.
enum class Direction { kReading, kWriting };
Descriptor takeInherited(int fd, Direction direction, const char* option);

/// Closes every descriptor above 2 but the two named ones (-1: none).
///
/// A caller that holds several channels may leak the end of one to the program
/// that serves another; a channel whose far end is open by accident is never
/// seen to end.
void closeStrayDescriptors(int keep, int keepToo);

/// Sets or clears O_NONBLOCK. Nothing is done if the flag is as wanted.
void setNonBlocking(int fd, bool on);

/// What an ordinary user may ask for; room for a line per file between two looks.
inline constexpr int kPipeSize = 1 << 20;  // bytes

/// Makes a pipe hold size bytes if it holds less; anything else is left alone.
void enlargePipe(int fd, int size);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_DESCRIPTOR_H
