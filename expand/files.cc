#include "expand/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace Expand {
namespace {

constexpr std::size_t kFileChunk = 65536;

}  // namespace

int get_file(const std::string& path, std::string& out) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd == -1) return errno;
  out.clear();
  int error = 0;
  for (;;) {
    const std::size_t length = out.size();
    out.resize(length + kFileChunk);
    const ssize_t got = read(fd, &out[length], kFileChunk);
    const int readError = errno;
    out.resize(length + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) break;
    if (got == -1 && readError != EINTR) {
      error = readError;
      break;
    }
  }
  close(fd);
  return error;
}

int put_file(const std::string& path, const std::string& data, int flags, unsigned mode) {
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, mode);
  if (fd == -1) return errno;
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t put = write(fd, data.data() + done, std::min(kFileChunk, data.size() - done));
    if (put >= 0) {
      done += static_cast<std::size_t>(put);
    } else if (errno != EINTR) {
      const int error = errno;
      close(fd);
      return error;
    }
  }
  // The descriptor is gone even when close was interrupted, and the data is
  // written; any other failure of close is a failed write that shows late.
  if (close(fd) == -1 && errno != EINTR) return errno;
  return 0;
}

}  // namespace Expand
