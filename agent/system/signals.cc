#include "agent/system/signals.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>

#include "agent/system/event.h"

namespace agent {

namespace {

int stopEvent = -1;

void onStopSignal(int) {
  const int number = errno;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(stopEvent, &one, sizeof one);
  errno = number;
}

}  // namespace

int catchStopSignals() {
  stopEvent = newEvent().release();
  struct sigaction action = {};
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  action.sa_handler = onStopSignal;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  return stopEvent;
}

}  // namespace agent
