#include "node/runscript.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "host/descriptors.h"
#include "host/error.h"
#include "host/file.h"
#include "host/id_map.h"
#include "host/process.h"
#include "host/state.h"
#include "host/text.h"
#include "node/confine.h"
#include "node/sandbox.h"
#include "node/script_output.h"
#include "node/settle.h"
#include "node/storage.h"

namespace node {
namespace {

/// What the child needs, made before the fork.
struct Plan {
  std::string tree;
  std::string hostname;
  std::string script;
  std::vector<std::string> command;
  std::vector<std::string> environment;
  Fd userNamespace;  ///< none for a container whose ids are the host's
};

/// Pipes from the script: its standard output and error, and what went wrong before it.
struct Pipes {
  FdPair out, err, error;
};

FdPair makePipeFor(const std::optional<IdMap>& map) {
  FdPair ends = makePipe();
  if (!ends) failErrno("cannot create a pipe");
  // "echo >/dev/stderr" opens it anew, which only its owner may.
  if (map && fchown(ends.second.get(), map->first, map->first) != 0) {
    failErrno("cannot give a pipe to the script");
  }
  return ends;
}

/// The environment that the process began with can be read in /proc by all it starts.
void wipeEnvironment() {
  for (char** word = environ; word != nullptr && *word != nullptr; ++word) {
    explicit_bzero(*word, strlen(*word));
  }
  clearenv();
}

int exitStatus(int status) {
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/// The script's own process.
[[noreturn]] void execScript(const Plan& plan, int errorPipe) {
  const std::vector<char*> argv = pointersTo(plan.command);
  const std::vector<char*> environment = pointersTo(plan.environment);
  if (plan.userNamespace) joinUserNamespace(plan.userNamespace);
  closeAllBut({errorPipe}, STDERR_FILENO + 1);
  confine();
  execve(argv[0], argv.data(), environment.data());
  const std::string text = textf("cannot run %s in the container: %s", argv[0], strerror(errno));
  writeAll(errorPipe, text);
  _exit(1);
}

/// The first process of the pid namespace: sets the place up, starts the
/// script, collects orphans, and takes everybody along when it ends.
[[noreturn]] void runFirstProcess(const Plan& plan, int parent, const Pipes& pipes) {
  const int errorPipe = pipes.error.second.get();
  try {
    wipeEnvironment();
    // Without a controlling terminal nothing in there can type for the user.
    setsid();
    const Fd input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!input || dup2(input.get(), STDIN_FILENO) < 0 ||
        dup2(pipes.out.second.get(), STDOUT_FILENO) < 0 ||
        dup2(pipes.err.second.get(), STDERR_FILENO) < 0) {
      failErrno("cannot redirect the script's input and output");
    }
    // When the parent dies, so does this process, and with it the namespace.
    // It may have died before this call: its descriptor is readable then.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd gone{parent, POLLIN, 0};
    if (poll(&gone, 1, 0) != 0) _exit(1);
    enterSandbox(plan.tree, plan.hostname, plan.script, plan.userNamespace);
    // Nor may anybody in there look into this process, or write to its memory.
    if (prctl(PR_SET_DUMPABLE, 0) != 0) failErrno("cannot hide the script's first process");
    const pid_t child = fork();
    if (child < 0) failErrno("cannot start a process for the script");
    if (child == 0) execScript(plan, errorPipe);
    confine();
    closeAllBut({errorPipe}, STDERR_FILENO + 1);
    close(errorPipe);
    int status = 0;
    for (;;) {
      const pid_t ended = wait(&status);
      if (ended == child) _exit(exitStatus(status));
      if (ended < 0 && errno != EINTR) _exit(1);
    }
  } catch (const std::exception& error) {
    writeAll(errorPipe, error.what());
    _exit(1);
  }
}

std::string readAll(int fd) {
  std::string text;
  char buffer[1024];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return text;
    text.append(buffer, static_cast<size_t>(got));
  }
}

}  // namespace

std::vector<std::string> scriptInterpreter(const std::string& script) {
  if (!script.starts_with("#!")) return {"/bin/sh"};
  std::string line = script.substr(2, script.find('\n') - 2);
  const size_t start = line.find_first_not_of(" \t");
  if (start == line.npos || line[start] != '/') {
    fail(ExitCode::kFailed, "the script's first line names no absolute path of an interpreter");
  }
  line = line.substr(start, line.find_last_not_of(" \t\r") + 1 - start);
  const size_t blank = line.find_first_of(" \t");
  if (blank == line.npos) return {line};
  return {line.substr(0, blank), line.substr(line.find_first_not_of(" \t", blank))};
}

std::vector<std::string> scriptEnvironment(const Container& container) {
  std::vector<std::string> environment{
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
      textf("VEID=%u", container.id)};
  for (const char* name : {"HOSTNAME", "IP_ADDRESS", "NETIF", "GATEWAY", "NAMESERVER",
                           "SEARCHDOMAIN", "DISTRIBUTION"}) {
    const std::string value = container.var(name);
    if (!value.empty()) environment.push_back(std::string(name) + "=" + value);
  }
  return environment;
}

int runScript(const Container& container, const std::string& scriptPath) {
  refuseRunning(container, "run a script in it");
  Plan plan;
  const std::optional<std::string> script = readFile(scriptPath);
  if (!script) {
    fail(ExitCode::kNotFound, "cannot read the script %s: %s", scriptPath.c_str(), strerror(errno));
  }
  plan.tree = container.tree();
  if (!isDirectory(plan.tree)) {
    fail(ExitCode::kNotFound, "container %u has no file tree: there is no directory %s",
         container.id, plan.tree.c_str());
  }
  const TreeAccess access(container);
  plan.script = *script;
  plan.hostname = container.var("HOSTNAME");
  plan.command = scriptInterpreter(*script);
  plan.command.push_back(kScriptInSandbox);
  plan.environment = scriptEnvironment(container);
  const std::optional<IdMap> map = idMapOf(container);
  if (map) plan.userNamespace = makeUserNamespace(*map);

  Pipes pipes{makePipeFor(map), makePipeFor(map), makePipeFor(map)};
  const Fd self(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
  if (!self) failErrno("cannot open a descriptor of this process");
  // The child may do more than async-signal-safe calls: the tools have one thread.
  clone_args arguments{};
  arguments.flags = CLONE_NEWPID;
  arguments.exit_signal = SIGCHLD;
  const auto child = static_cast<pid_t>(syscall(SYS_clone3, &arguments, sizeof arguments));
  if (child < 0) failErrno("cannot start a process in a pid namespace for the script");
  if (child == 0) runFirstProcess(plan, self.get(), pipes);
  for (auto* ends : {&pipes.out, &pipes.err, &pipes.error}) ends->second.reset();
  relayOutput(pipes.out.first, pipes.err.first);
  const std::string error = readAll(pipes.error.first.get());
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) failErrno("cannot wait for the script");
  }
  if (!error.empty()) fail(ExitCode::kFailed, "%s", error.c_str());
  return exitStatus(status);
}

}  // namespace node
