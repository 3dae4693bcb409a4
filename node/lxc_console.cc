// The console of a running container.
#include <lxc/lxccontainer.h>
#include <unistd.h>

#include <cstdio>

#include "host/error.h"
#include "node/lxc_engine.h"
#include "node/lxc_handle.h"
#include "node/run_record.h"

namespace node {

void openConsole(const Container& container) {
  requireRunning(container.id);
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    fail(ExitCode::kUsage,
         "a console needs a terminal: 'qxctl logs %u' shows what was on it, 'qxctl exec %u "
         "COMMAND' runs a command without one",
         container.id, container.id);
  }
  // LXC says itself how to leave.
  fprintf(stderr, "The console of container %u: Enter shows its prompt.\n", container.id);
  const LxcHandle lxc = openLxc(container.id);
  constexpr int kConsole = 0;
  constexpr int kControlA = 1;
  if (lxc->console(lxc.get(), kConsole, STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, kControlA) !=
      0) {
    fail(ExitCode::kFailed,
         "LXC does not give the console of container %u: somebody else may have it, see %s",
         container.id, lxcPlace(container.id, kLxcLog).c_str());
  }
  fputc('\n', stderr);
}

}  // namespace node
