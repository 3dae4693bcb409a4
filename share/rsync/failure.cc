#include "share/rsync/failure.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qxrsync {

void complain(const std::string& text) {
  const std::string line = "rsync: " + text + "\n";
  // Nobody can be told that nobody can be told.
  if (::write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

Failure systemFailure(int status, const std::string& what) {
  const int error = errno;
  return {status, what + ": " + std::strerror(error)};
}

}  // namespace qxrsync
