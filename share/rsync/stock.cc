#include "share/rsync/stock.h"

#include <unistd.h>

#include <climits>

#include "share/rsync/child.h"
#include "share/rsync/failure.h"

namespace qxrsync {

std::string ownPath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
  if (size <= 0) throw systemFailure(exitSystem, "cannot read /proc/self/exe");
  path.resize(static_cast<size_t>(size));
  return path;
}

std::string stockPath() {
  const std::string self = ownPath();
  const std::string beside = self.substr(0, self.rfind('/')) + "/rsync.stock";
  if (::access(beside.c_str(), F_OK) == 0) return beside;
  const char* const usual = "/usr/bin/rsync";
  if (::access(usual, F_OK) == 0) return usual;
  throw Failure(exitSystem, "stock rsync is neither at " + beside + " nor at " + usual +
                                "; install the package rsync");
}

void becomeStock(const std::vector<std::string>& arguments) {
  const std::string path = stockPath();
  const ArgumentVector argv(path, arguments);
  ::execv(path.c_str(), argv.data());
  throw systemFailure(exitSystem, "cannot run " + path);
}

}  // namespace qxrsync
