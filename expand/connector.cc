#include "expand/connector.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Expand {
namespace {

constexpr std::uint64_t kChunk = 4096;

}  // namespace

Connector::~Connector() = default;

int CfromStaticBuf::process() {
  const ssize_t put = write(fd(), data_, std::min(size_ - position_, kChunk));
  if (put == -1 && errno != EINTR) return -errno;
  if (put > 0) position_ += static_cast<std::uint32_t>(put);
  return position_ < size_ ? 1 : 0;
}

int CtoDynaBuf::process() {
  char chunk[kChunk];
  ssize_t got;
  do {
    got = read(fd(), chunk, sizeof(chunk));
  } while (got == -1 && errno == EINTR);
  if (got == -1) return -errno;

  const std::uint64_t count = static_cast<std::uint64_t>(got);
  if (count > 0) {
    const std::uint64_t room = limit_ - output_.size();
    output_.append(chunk, std::min(room, count));
    if (room <= count && !keepReading_) return 0;
    copy(chunk, count);
  }
  return static_cast<int>(got);
}

void CtoDynaBuf::copy(const char* data, std::uint64_t size) {
  while (copyFd_ >= 0 && size > 0) {
    const ssize_t put = write(copyFd_, data, size);
    if (put >= 0) {
      data += put;
      size -= static_cast<std::uint64_t>(put);
    } else if (errno != EINTR) {
      close(copyFd_);
      copyFd_ = -1;
    }
  }
}

int CtoStaticBuf::process() { return 0; }

}  // namespace Expand
