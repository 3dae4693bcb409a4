// What can be read of a container from outside: LXC's log, and what was on its console.
#ifndef QX_NODE_LOGS_H
#define QX_NODE_LOGS_H

#include <string>
#include <vector>

#include "host/fd.h"
#include "node/host.h"

namespace node {

/// Lines of a log that is being written to.
class Log {
 public:
  explicit Log(std::string path) : path_(std::move(path)) {}
  const std::string& path() const { return path_; }

  /// The lines that have ended since the last call, fit to be shown; at first all of
  /// them, with those of the older log. None while there is no file. Goes on with the
  /// file that takes this one's place. Throws Error.
  std::vector<std::string> lines();

  /// What has come of a line that has not ended.
  std::string rest() const;

 private:
  std::string path_;
  Fd fd_;
  std::string text_;  ///< read, and not given away
};

/// Prints the last `most` lines of both logs, each below its name, and with `follow`
/// whatever comes, for ever. kNotFound when the container was not started since the
/// host was.
void showLogs(unsigned id, size_t most, bool follow);

}  // namespace node

#endif
