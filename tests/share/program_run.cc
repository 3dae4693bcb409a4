#include "share_tests/program_run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>
#include <utility>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool until(int seconds, const std::function<bool()>& reached) {
  const auto end = steady_clock::now() + std::chrono::seconds(seconds);
  while (!reached()) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return true;
}

std::string contents(int fd) {
  std::string text;
  struct stat status {};
  if (fd < 0 || ::fstat(fd, &status) != 0) return text;
  text.resize(static_cast<size_t>(status.st_size));
  const ssize_t count = ::pread(fd, text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return text;
}

std::string programName(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

std::vector<pid_t> childrenOf(pid_t parent) {
  const std::string id = std::to_string(parent);
  std::ifstream file("/proc/" + id + "/task/" + id + "/children");
  std::vector<pid_t> children;
  for (pid_t child = 0; file >> child;) children.push_back(child);
  return children;
}

}  // namespace

Fd::Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Fd& Fd::operator=(Fd&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

void Fd::close() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

Fd Fd::duplicate() const { return Fd(::fcntl(fd_, F_DUPFD_CLOEXEC, 0)); }

ProgramRun::~ProgramRun() {
  if (pid_ > 0 && !ended_) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
}

void ProgramRun::start() {
  outFile_ = Fd(::memfd_create("out", MFD_CLOEXEC));
  errFile_ = Fd(::memfd_create("err", MFD_CLOEXEC));
  const Fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  std::vector<char*> argv;
  for (std::string& argument : arguments_) argv.push_back(argument.data());
  argv.push_back(nullptr);
  // Copies above all inherited numbers, so that setting up one descriptor does
  // not overwrite another.
  const Fd in(::fcntl(input_ < 0 ? null.get() : input_, F_DUPFD_CLOEXEC, 200));
  const Fd out(::fcntl(output_ < 0 ? outFile_.get() : output_, F_DUPFD_CLOEXEC, 200));

  pid_ = ::fork();
  ASSERT_GE(pid_, 0);
  if (pid_ == 0) {
    ::dup2(in.get(), 0);
    ::dup2(out.get(), 1);
    ::dup2(errFile_.get(), 2);
    for (const int fd : inherited_) ::fcntl(fd, F_SETFD, 0);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
}

int ProgramRun::wait(int seconds) {
  if (ended_) return status_;
  const bool inTime = until(seconds, [this] { return ::waitpid(pid_, &status_, WNOHANG) == pid_; });
  if (!inTime) {
    ADD_FAILURE() << arguments_[0] << " still runs after " << seconds << " s; it said: " << err();
    signalOne(pid_, SIGKILL);
    ::waitpid(pid_, &status_, 0);
  }
  ended_ = true;
  return status_;
}

int ProgramRun::exitStatus(int seconds) {
  const int status = wait(seconds);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

std::string ProgramRun::out() const { return contents(outFile_.get()); }
std::string ProgramRun::err() const { return contents(errFile_.get()); }

int runProgram(std::vector<std::string> arguments) {
  ProgramRun run(std::move(arguments));
  run.start();
  return run.exitStatus();
}

std::vector<pid_t> childrenNamed(pid_t parent, const std::string& program) {
  std::vector<pid_t> found;
  for (const pid_t child : childrenOf(parent))
    if (programName(child) == program) found.push_back(child);
  return found;
}

void signalOne(pid_t pid, int number) {
  if (pid > 0) {
    ::kill(pid, number);
  } else {
    ADD_FAILURE() << "there is no process to send signal " << number;
  }
}

pid_t awaitChild(pid_t parent, const std::string& program) {
  std::vector<pid_t> found;
  until(10, [&] { return (found = childrenNamed(parent, program)).size() == 1; });
  if (found.size() == 1) return found[0];
  ADD_FAILURE() << found.size() << " children named " << program;
  return -1;
}

NoProcessLeftBehind::NoProcessLeftBehind() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

NoProcessLeftBehind::~NoProcessLeftBehind() {
  const auto none = [] {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    return childrenOf(::getpid()).empty();
  };
  if (until(10, none)) return;
  for (const pid_t child : childrenOf(::getpid())) {
    ADD_FAILURE() << "left behind: " << child << " " << programName(child);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
}
