#ifndef QX_SHARE_RSYNC_CHILD_H
#define QX_SHARE_RSYNC_CHILD_H

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qxrsync {

/// While it lives, the signals that end or stop a run (SIGCHLD, SIGHUP, SIGINT,
/// SIGTERM) are blocked, to be taken one by one. There is one in a process, made
/// just before the child: until then these signals end the program.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

  /// The next signal, or nothing when span is over.
  std::optional<int> next(std::chrono::milliseconds span) const;
  std::optional<int> next() const;  ///< waits as long as it takes

  /// Undoes everything, in a child between fork and exec.
  void release() const;

 private:
  sigset_t held_;
  sigset_t before_;
  struct sigaction childBefore_;
};

/// Makes writing to a closed channel an error instead of a death by SIGPIPE. The
/// children have the default again.
void ignoreBrokenPipes();

class Enclosure;

/// One running stock rsync, or one part of this program in a process of its own. It is told to end
/// when this process dies, however that happens.
class Child {
 public:
  struct Setup {
    std::vector<std::string> arguments;    ///< for stock rsync
    int standardInput = -1;                ///< becomes descriptor 0; -1: as this process's
    int standardOutput = -1;               ///< becomes descriptor 1; -1: as this process's
    int standardError = -1;                ///< becomes descriptor 2; -1: as this process's
    int inherited = -1;                    ///< stays open across exec; -1: none
    int deathSignal = SIGTERM;             ///< sent to it when this process dies
    const Enclosure* enclosure = nullptr;  ///< where it is closed in; null: nowhere
    /// What is done instead of running stock rsync, if it is not empty. The child ends
    /// with the status that this returns. The signals that are held here are held in it.
    std::function<int()> task;
  };

  /// Throws Failure if there is no stock rsync or it cannot be run or closed in. To be
  /// called while there is one thread.
  Child(const Setup& setup, const SignalsHeld& signals);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  /// A child that still runs is killed and waited for.
  ~Child();

  /// The wait status, once the child has ended and all that it started.
  std::optional<int> ended();
  void signal(int number) const;

 private:
  pid_t pid_ = -1;
  std::optional<int> childStatus_;
  std::optional<int> status_;  ///< set when nothing of it is left
};

/// The exit status for a wait status. A death by a signal is repeated by this process, so
/// then it does not return.
int exitLike(int waitStatus);

/// What this program ends with when stock rsync ends with that status: vanished files (24)
/// count as a partial transfer (23), as on a live system files vanish all the time.
int ownStatus(int stockStatus);

/// Waits for the child, passing on signals meanwhile; then exitLike.
int supervise(Child& child, const SignalsHeld& signals);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_CHILD_H
