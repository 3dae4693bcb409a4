// One child process.
#ifndef QX_AGENT_SYSTEM_CHILD_H
#define QX_AGENT_SYSTEM_CHILD_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "agent/system/starter.h"

namespace agent {

/// How to start a program.
struct ChildOptions {
  /// Descriptors for standard input, output and error; -1 for /dev/null.
  int streams[3] = {-1, -1, -1};
  /// A process group of its own. Without it the program is in the caller's group,
  /// so that it can use the terminal, and ignores SIGINT, SIGQUIT and SIGHUP.
  bool ownGroup = true;
  /// Kill the program (SIGKILL) when the thread that started it dies.
  bool dieWithParent = false;
};

/// Owns a process, whose end raises no SIGCHLD in this one; kills it, with its group if it has one
/// of its own, and reaps it when it goes.
class Child {
 public:
  Child() = default;
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Starts argv[0], a path, with the caller's environment and every descriptor
  /// that is not close-on-exec. Returns 0 or an errno value; nothing runs then.
  int start(const std::vector<std::string>& argv, const ChildOptions& options);

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

  /// True once the process has ended; then status() is its wait status.
  bool poll();
  int status() const { return status_; }

  /// Readable when the process has ended, for poll(2); -1 once poll() has said so.
  int fd() const { return starter_.status; }

  /// Sends a signal to the process, with its group if it has one of its own.
  void signalGroup(int signal) const;

 private:
  Started starter_;
  pid_t pid_ = 0;
  bool ownGroup_ = true;
  bool ended_ = false;
  int status_ = 0;
};

}  // namespace agent

#endif
