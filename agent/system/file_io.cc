#include "agent/system/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "agent/system/last_error.h"
#include "agent/system/unique_fd.h"

namespace agent {

int readFile(const std::string& path, std::string& text) {
  text.clear();
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return failErrno(path);
  char buffer[65536];
  for (;;) {
    const ssize_t count = read(fd.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failErrno(path);
    if (count == 0) return 0;
    text.append(buffer, static_cast<size_t>(count));
  }
}

int writeFileAtomically(const std::string& path, const std::string& text, mode_t mode) {
  std::string temporary = path + ".XXXXXX";
  UniqueFd fd(mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd) return failErrno(path);
  const auto giveUp = [&]() {
    const int number = errno;
    unlink(temporary.c_str());
    errno = number;
    return failErrno(path);
  };
  for (size_t written = 0; written < text.size();) {
    const ssize_t count = write(fd.get(), text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return giveUp();
    written += static_cast<size_t>(count);
  }
  if (fchmod(fd.get(), mode) != 0 || fsync(fd.get()) != 0) return giveUp();
  if (rename(temporary.c_str(), path.c_str()) != 0) return giveUp();
  return 0;
}

}  // namespace agent
