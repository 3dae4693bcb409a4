#include "host/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "host/descriptors.h"
#include "host/error.h"
#include "host/text.h"

namespace host {
namespace {

constexpr size_t kKeptErrorText = 4096;

class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

/// Everything up to the end of the pipe, of which the last part is kept.
std::string drain(int fd) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
    if (text.size() > kKeptErrorText) text.erase(0, text.size() - kKeptErrorText);
  }
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace

namespace {

/// Runs it to its end. What it writes to the kept streams is returned.
std::string run(const std::vector<std::string>& arguments, bool keepOutput) {
  std::string command;
  for (const std::string& argument : arguments) {
    command += (command.empty() ? "" : " ") + argument;
  }
  const std::vector<char*> argv = pointersTo(arguments);

  FdPair ends = makePipe();
  if (!ends) failErrno("cannot run '%s'", command.c_str());
  FileActions actions;
  posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (keepOutput) {
    posix_spawn_file_actions_adddup2(actions.get(), ends.second.get(), STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(actions.get(), STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_adddup2(actions.get(), ends.second.get(), STDERR_FILENO);
  pid_t pid = -1;
  errno = posix_spawnp(&pid, argv[0], actions.get(), nullptr, argv.data(), environ);
  if (errno != 0) failErrno("cannot run '%s'", command.c_str());
  ends.second.reset();
  std::string text = drain(ends.first.get());
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) failErrno("cannot wait for '%s'", command.c_str());
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return text;
  const std::string end = WIFSIGNALED(status) ? textf("was ended by signal %d", WTERMSIG(status))
                                              : textf("exited with status %d", WEXITSTATUS(status));
  fail(ExitCode::kFailed, "'%s' %s%s%s", command.c_str(), end.c_str(), text.empty() ? "" : ":\n",
       text.c_str());
}

}  // namespace

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

void runProgram(const std::vector<std::string>& arguments) { run(arguments, false); }

std::string outputOf(const std::vector<std::string>& arguments) { return run(arguments, true); }

std::string findProgram(const std::string& name) {
  const char* path = getenv("PATH");
  std::string rest = path == nullptr ? "/usr/sbin:/usr/bin:/sbin:/bin" : path;
  while (!rest.empty()) {
    const std::string folder = rest.substr(0, rest.find(':'));
    std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
    rest.erase(0, folder.size() + 1);
  }
  return "";
}

std::string ownProgram() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) failErrno("cannot find the path of this program");
  // As the kernel calls a program that was replaced while it ran.
  constexpr std::string_view kReplaced = " (deleted)";
  std::string_view text(path, static_cast<size_t>(length));
  if (text.ends_with(kReplaced)) text.remove_suffix(kReplaced.size());
  return std::string(text);
}

void requireProgram(const char* name, const char* package) {
  if (!findProgram(name).empty()) return;
  fail(ExitCode::kFailed, "the program %s is missing: install the package %s", name, package);
}

}  // namespace host
