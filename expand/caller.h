// Runs outside programs: starts one with its standard descriptors on pipes, and
// feeds and collects them in memory until it has ended.
//
//   CtoDynaBuf out(1 << 20, true, -1);
//   std::vector<Connector*> connectors = {nullptr, &out, nullptr};
//   CallerExec runner("df", {"-P", "/"}, {"PATH=/usr/bin:/bin"}, {});
//   runner.call(connectors);
//   if (runner.normalExit() && runner.exitCode() == 0) use(out.output());
#ifndef QX_EXPAND_CALLER_H
#define QX_EXPAND_CALLER_H

#include <poll.h>
#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "expand/connector.h"
#include "expand/export.h"

namespace Expand {

struct ChildImage;

/// The order of a run, and what is known of the program. The steps are those of a
/// derived class.
class EXPAND_API CallerBase {
 public:
  /// Starts the program and returns its pid. This one only notes that it has been
  /// entered.
  ///
  /// connectors  for standard input, output and error, in this order; null for a
  ///             descriptor that has none. They stay the caller's.
  virtual pid_t enter(std::vector<Connector*>& connectors);
  virtual void leave();

  /// The whole run: enter, prepareMainLoop_, doMainLoop_, finishMainLoop_, leave.
  /// Returns when the program has ended. A program that fails is no error here:
  /// look at the results. Throws Expand::Error when the program cannot be started
  /// or watched; whether it ran is then not known.
  virtual void call(std::vector<Connector*>& connectors);

  virtual ~CallerBase();

  CallerBase(const CallerBase&) = delete;
  CallerBase& operator=(const CallerBase&) = delete;

  /// 0 before the start.
  pid_t pid() const { return pid_; }

  /// Exit status of the program; -1 unless it ended by itself.
  int exitCode() const { return exitCode_; }

 protected:
  /// program  a path, or a name to look for along the PATH of `env`
  /// args     without the program name
  /// env      entries "NAME=value"
  CallerBase(const char* program, const std::list<std::string>& args,
             const std::list<std::string>& env);

  virtual void prepareMainLoop_() = 0;
  virtual void doMainLoop_() = 0;
  virtual void finishMainLoop_() = 0;

  std::string program_;
  std::list<std::string> args_;
  std::list<std::string> env_;
  pid_t pid_ = 0;
  int exitCode_ = -1;
  bool inCall_ = false;
  bool entered_ = false;
};

/// Runs a program as a child process. An object is good for one run.
///
/// During a run SIGPIPE is ignored in the whole process and SIGCHLD has a handler
/// of this class; both are put back as they were found. Several runners may run at
/// once on different threads, but they share one flag for SIGCHLD: a child that is
/// not this runner's can end the wait for its child (see doMainLoop_).
class EXPAND_API CallerExec : public CallerBase {
 public:
  struct Intrinsics {
    std::string workDir = {};          ///< of the program; empty for this process's own
    bool exitWithoutDraining = false;  ///< return as soon as the program has ended,
                                       ///< without waiting for the end of its output,
                                       ///< which its own children may hold open
  };

  /// Copies everything; nothing runs yet. See get_full_name for how `program` is
  /// found. `env` is the program's whole environment: nothing is inherited.
  CallerExec(const char* program, const std::list<std::string>& args,
             const std::list<std::string>& env, Intrinsics intrinsics);

  /// Neither ends nor waits for the program.
  ~CallerExec() override;

  /// Starts the program. Errors before the program runs, in the child process, go
  /// to its standard error and make it exit with status 1.
  pid_t enter(std::vector<Connector*>& connectors) override;

  /// Adds the variables of `add` to those of `base`, which comes out in the order
  /// of the names. A variable that is in both keeps the value of `base`, unless the
  /// new value refers to a variable of `base` as %NAME%: the first such reference
  /// is replaced by that variable's value and the result is the new value. So
  /// "PATH=%PATH%:/sbin" lengthens a PATH and "PATH=/sbin" does not replace one.
  static void mergeEnvironments(std::list<std::string>& base, const std::list<std::string>& add);

  /// The results, after call. A program that could not be executed exits normally
  /// with code 1.
  bool normalExit() const { return normalExit_; }
  int killingSignal() const { return signal_; }  ///< 0 for none

  /// Name of the core file that a killed program has left, relative to its working
  /// directory; empty when there is none. It is the name of kernels that do not
  /// send cores elsewhere.
  std::string getCoreDumpName() const;

  /// Set by the handler for SIGCHLD; shared by all runners of the process.
  static std::atomic<bool> sigchld_received;
  static void handle_CHLD(int signal);

 protected:
  void prepareMainLoop_() override;
  void doMainLoop_() override;
  void finishMainLoop_() override;

  Connector* connectors_[3] = {};
  pollfd pollfds_[3] = {};
  std::uint32_t live_ = 0;  ///< entries of pollfds_ in use, from the first on
  int pipes_[3][2];         ///< each the parent's end and the child's end, or -1
  Connector* liveConnectors_[3] = {};
  struct sigaction savedPipe_ = {};
  struct sigaction savedChild_ = {};
  int status_ = 0;  ///< as of waitpid
  bool normalExit_ = false;
  int signal_ = 0;
  bool exited_ = false;
  Intrinsics intrinsics_;

 private:
  void makePipe_(unsigned i);
  void parentSteps_();
  [[noreturn]] void executeProgram_(const ChildImage& image);
  int calculateTimeout_() const;
  void waitForEvents_(class SigMask& mask);
  void lookForExit_();
  void lookWithoutSignal_();
  void serveConnectors_();
  void closeEntry_(std::uint32_t k);
  void closePipes_();
  void analyseStatus_();
};

}  // namespace Expand

#endif  // QX_EXPAND_CALLER_H
