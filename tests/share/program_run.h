// Runs the built rsync program, or any other, as a child process of the test,
// with descriptors of the test's choosing and its output kept.
#ifndef QX_TESTS_SHARE_PROGRAM_RUN_H
#define QX_TESTS_SHARE_PROGRAM_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

// Owns a descriptor. All descriptors of these tests have close-on-exec set.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept;
  Fd& operator=(Fd&& other) noexcept;
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() { close(); }
  int get() const { return fd_; }
  void close();
  Fd duplicate() const;

 private:
  int fd_ = -1;
};

class ProgramRun {
 public:
  // Seconds. A copy by rsync 3.5.0 on one machine lasts 60 s more about once in some
  // thousand times (measured: 1 of 4,749 with three at a time): its receiver misses the
  // signal that should end it and waits for data until its own limit.
  static constexpr int kPatience = 150;

  explicit ProgramRun(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}
  // A program that still runs is killed.
  ~ProgramRun();
  ProgramRun(const ProgramRun&) = delete;
  ProgramRun& operator=(const ProgramRun&) = delete;

  // Before start(): what the child's standard input and output are (default
  // /dev/null and out()), and what it inherits under the same number.
  void setInput(int fd) { input_ = fd; }
  void setOutput(int fd) { output_ = fd; }
  void inherit(int fd) { inherited_.push_back(fd); }

  void start();
  pid_t pid() const { return pid_; }

  // The wait status. A program that has not ended after `seconds` fails the
  // test and is killed.
  int wait(int seconds = kPatience);
  // The exit status, or 1000 + signal.
  int exitStatus(int seconds = kPatience);

  std::string out() const;
  std::string err() const;

 private:
  std::vector<std::string> arguments_;
  int input_ = -1;
  int output_ = -1;
  std::vector<int> inherited_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
  Fd outFile_;
  Fd errFile_;
};

// Runs a program to its end; its exit status as above.
int runProgram(std::vector<std::string> arguments);

// The direct child processes of a process that have this program name.
std::vector<pid_t> childrenNamed(pid_t parent, const std::string& program);

// Sends a signal to one process. A number that kill() takes for more than one process,
// what a failed search leaves, fails the test and reaches nobody.
void signalOne(pid_t pid, int number);

// The only such child, once there is one; after ten seconds fails the test and
// returns -1.
pid_t awaitChild(pid_t parent, const std::string& program);

// Makes this process the one that orphans fall to, and, at the end of its life,
// fails the test if there are any left ten seconds later (and kills them).
class NoProcessLeftBehind {
 public:
  NoProcessLeftBehind();
  ~NoProcessLeftBehind();
};

#endif  // QX_TESTS_SHARE_PROGRAM_RUN_H
