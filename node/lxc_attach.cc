// Commands inside running containers.
#include <lxc/attach_options.h>
#include <lxc/lxccontainer.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "host/error.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/state.h"
#include "host/text.h"
#include "node/lxc_config.h"
#include "node/lxc_engine.h"
#include "node/lxc_handle.h"
#include "node/run_record.h"

namespace node {
namespace {

int waitFor(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) failErrno("cannot wait for the command");
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int attach(const Container& container, const std::vector<std::string>& command, bool terminal) {
  if (!runningInit(container.id)) {
    fail(ExitCode::kNotRunning, "container %u is not running", container.id);
  }
  std::vector<char*> argv = pointersTo(command);
  const char* term = getenv("TERM");
  const std::vector<std::string> environment{
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
      "USER=root", textf("TERM=%s", term == nullptr ? "dumb" : term)};
  std::vector<char*> pointers = pointersTo(environment);

  lxc_attach_options_t options = LXC_ATTACH_OPTIONS_DEFAULT;
  options.env_policy = LXC_ATTACH_CLEAR_ENV;
  options.extra_env_vars = pointers.data();
  options.initial_cwd = const_cast<char*>("/root");
  if (terminal) options.attach_flags |= LXC_ATTACH_TERMINAL;
  lxc_attach_command_t call{argv[0], argv.data()};
  pid_t pid = -1;
  const LxcHandle lxc = openLxc(container.id);
  if (lxc->attach(lxc.get(), lxc_attach_run_command, &call, &options, &pid) != 0 || pid < 0) {
    fail(ExitCode::kFailed, "cannot run %s in container %u", argv[0], container.id);
  }
  return waitFor(pid);
}

}  // namespace

LxcHandle openLxc(unsigned id) {
  LxcHandle lxc(lxc_container_new(lxcName(id).c_str(), lxcDirectory().c_str()));
  if (!lxc) fail(ExitCode::kFailed, "liblxc gives no handle of container %u", id);
  return lxc;
}

int execInContainer(const Container& container, const std::vector<std::string>& command) {
  return attach(container, command, false);
}

int enterContainer(const Container& container) {
  const bool terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
  return attach(container, {"/bin/sh", "-c", "exec \"$(command -v bash || command -v sh)\" -l"},
                terminal);
}

}  // namespace node
