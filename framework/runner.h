// The framework's program runner.
#ifndef QX_FRAMEWORK_RUNNER_H
#define QX_FRAMEWORK_RUNNER_H

#include <string>

#include "framework/api.h"

namespace QXL {

/// Streams of a program, also as bits of flags.
enum GenExecStream {
  GenExecInput = 1,   ///< its standard input
  GenExecOutput = 2,  ///< its standard output
  GenExecError = 4    ///< its standard error
};

/// Given to execAsync: return as soon as the program runs.
enum { GenExecAsync = 0x200 };

/// Runs one program at a time, in a process group of its own. Its environment is
/// the caller's; streams that nobody asked for are /dev/null. Wait statuses are
/// those of waitpid(2). When the request that the calling thread serves is
/// cancelled, the program's group is sent SIGTERM, and SIGKILL five seconds later.
/// A program that cannot be executed ends with exit code 127, its error output
/// saying why. One thread at a time; not to be copied.
class QXL_API GenExec {
 public:
  /// bytes: how much of each collected stream is kept; the last bytes stay.
  explicit GenExec(int bytes);
  /// Kills and reaps a program that still runs.
  virtual ~GenExec();
  GenExec(const GenExec&) = delete;
  GenExec& operator=(const GenExec&) = delete;

  /// Runs to completion, collecting error output only. flags: 0, or
  /// GenExecOutput to collect standard output too. seconds limits the run; the
  /// program is killed then. Returns the wait status.
  virtual int execWithOnlyError(const char* const* argv, int flags, int seconds);

  /// Starts a program. flags: the streams that setfd has wired, and GenExecAsync.
  /// Error output is collected. Returns 0, or -1 when it could not be started, the
  /// reason being in QXL::getErrorMessage(). seconds 0: no limit.
  virtual int execAsync(int flags, const char* const* argv, int seconds);

  /// Waits for the program of execAsync and returns its wait status, 127 << 8 when
  /// none was started. QXL::getErrorMessage() then is its error output.
  virtual int wait();

  /// Wires a stream of the next program to a descriptor, which stays the caller's.
  void setfd(int stream, int fd);

  /// Characters that end a chunk of gets; each of them ends one.
  void setChunkDivider(const std::string& characters);

  /// Runs a program whose output is read while it runs. flags: the streams to read
  /// by gets. input: fed to standard input, null for none. Returns as execAsync.
  int execComplexBegin(const char* const* argv, int flags, int seconds, const char* input);
  /// Waits for output. Non-zero while there is a chunk to get or more may come.
  int execComplexGet();
  /// The next whole chunk of a stream, without its divider, valid until the next
  /// call; null when there is none yet. The text may be written to.
  char* gets(int stream);
  /// Waits for the end; returns the wait status.
  int execComplexEnd();

  /// What was collected of a stream.
  std::string getOutput(int stream) const;

 protected:
  struct State;
  State* state_;
};

/// A runner for programs that outlive one call.
class QXL_API HWExec : public GenExec {
 public:
  explicit HWExec(int bytes);
  ~HWExec() override;
};

}  // namespace QXL

#endif
