#include "share/rsync/failure.h"

#include <cerrno>
#include <cstring>

namespace qxrsync {

Failure systemFailure(int status, const std::string& what) {
  const int error = errno;
  return {status, what + ": " + std::strerror(error)};
}

}  // namespace qxrsync
