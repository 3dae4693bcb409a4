#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "share/rsync/child.h"
#include "share/rsync/handover.h"
#include "share/rsync/prelude.h"
#include "share/rsync/pump.h"
#include "share/rsync/run.h"

namespace qxrsync {

namespace {

constexpr std::chrono::seconds preludePatience{60};
constexpr int socketBuffer = 1 << 20;  // bytes towards stock rsync

bool gone(const pollfd& polled) { return (polled.revents & (POLLHUP | POLLERR)) != 0; }

// A larger buffer towards stock rsync: fewer turns of all processes per byte.
void enlargeSendBuffer(int socket) {
  if (::setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &socketBuffer, sizeof socketBuffer) != 0)
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &socketBuffer, sizeof socketBuffer);
}

// Until the direction towards stock rsync is done. False: the client died.
bool joinBoth(Pump& toStock, Pump& fromStock, Channel& channel, int client) {
  while (true) {
    fromStock.move();
    // A half-close is passed on; the other direction goes on.
    if (fromStock.done()) channel.out.endWriting();
    toStock.move();
    if (toStock.done()) return true;

    std::vector<pollfd> wanted{{client, 0, 0}, {STDOUT_FILENO, 0, 0}};
    toStock.addWanted(wanted);
    fromStock.addWanted(wanted);
    const bool again = toStock.hadEnough() || fromStock.hadEnough();
    ::poll(wanted.data(), wanted.size(), again ? 0 : -1);
    if (gone(wanted[0])) return false;
    if (gone(wanted[1])) return true;
  }
}

// What stock rsync wrote before it stopped listening: the protocol's farewell.
void passOnTheRest(Pump& fromStock, int client) {
  while (fromStock.hasPending()) {
    fromStock.move();
    std::vector<pollfd> wanted{{client, 0, 0}};
    fromStock.addWanted(wanted);
    if (wanted.size() > 1 && (wanted[1].events & POLLOUT) != 0) {
      ::poll(wanted.data(), wanted.size(), -1);
      if (gone(wanted[0])) return;
    }
  }
}

}  // namespace

int runJoiner(const Options& options) {
  ignoreBrokenPipes();
  closeStrayDescriptors(options.handoverFd, -1);
  const Descriptor client(options.handoverFd);
  Channel channel = receiveChannel(client.get());
  sendCapabilities(channel.out.get(), options.capabilities, Deadline(preludePatience));

  enlargeSendBuffer(STDOUT_FILENO);
  Pump toStock(channel.in.get(), STDOUT_FILENO);
  Pump fromStock(STDIN_FILENO, channel.out.get());
  if (joinBoth(toStock, fromStock, channel, client.get())) passOnTheRest(fromStock, client.get());
  return 0;
}

}  // namespace qxrsync
