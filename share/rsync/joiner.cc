#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <optional>
#include <utility>

#include "share/rsync/child.h"
#include "share/rsync/failure.h"
#include "share/rsync/handover.h"
#include "share/rsync/handshake.h"
#include "share/rsync/pace.h"
#include "share/rsync/pump.h"
#include "share/rsync/run.h"

namespace qxrsync {

namespace {

constexpr int kSocketBuffer = 1 << 20;  // bytes towards stock rsync

bool gone(const pollfd& polled) { return (polled.revents & (POLLHUP | POLLERR)) != 0; }

// A larger buffer towards stock rsync: fewer turns of all processes per byte.
void enlargeSendBuffer(int socket) {
  if (::setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &kSocketBuffer, sizeof kSocketBuffer) != 0)
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);
}

// Until the direction towards stock rsync is done. False: the client died.
bool joinBoth(Pump& toStock, Pump& fromStock, Channel& channel, int client) {
  bool stockReady = true;
  bool channelReady = true;
  while (true) {
    if (channelReady) fromStock.move();
    // A half-close is passed on; the other direction goes on.
    if (fromStock.done()) endWriting(channel.out);
    if (stockReady) toStock.move();
    if (toStock.done()) return true;

    pollfd polled[] = {{client, 0, 0}, {STDOUT_FILENO, 0, 0}, toStock.wanted(), fromStock.wanted()};
    const bool again = toStock.hadEnough() || fromStock.hadEnough();
    ::poll(polled, std::size(polled), again ? 0 : -1);
    if (gone(polled[0])) return false;
    if (gone(polled[1])) return true;
    stockReady = toStock.hadEnough() || polled[2].revents != 0;
    channelReady = fromStock.hadEnough() || polled[3].revents != 0;
  }
}

// What stock rsync wrote before it stopped listening: the protocol's farewell.
void passOnTheRest(Pump& fromStock, int client) {
  while (fromStock.hasPending()) {
    fromStock.move();
    pollfd polled[] = {{client, 0, 0}, fromStock.wanted()};
    if ((polled[1].events & POLLOUT) != 0) ::poll(polled, std::size(polled), -1);
    if (gone(polled[0])) return;
  }
}

// The server's stock rsync has stock rsync's descriptors: until it ends, which the
// server tells by closing the channel, or the client dies.
void waitForTheEnd(const Channel& channel, int client) {
  const host::Fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
    if (!null || ::dup2(null.get(), fd) < 0) ::close(fd);
  pollfd polled[] = {{client, 0, 0}, {channel.in.get(), POLLIN, 0}};
  while (!gone(polled[0]) && polled[1].revents == 0) ::poll(polled, std::size(polled), -1);
}

}  // namespace

int runJoiner(const Options& options) {
  ignoreBrokenPipes();
  host::closeAllBut({options.handoverFd}, STDERR_FILENO + 1);
  const host::Fd client(options.handoverFd);
  std::optional<Channel> received = receiveDescriptors(client.get());
  if (!received) throw Failure(kExitSystem, "no data channel was handed over");
  Channel channel = std::move(*received);
  const Deadline deadline(kHandshakeTimeout);
  sendCapabilities(channel.out.get(), {options.capabilities, wantedPace()}, deadline);

  enlargeSendBuffer(STDOUT_FILENO);
  if (options.handOver && handOverStreams(channel, STDIN_FILENO, STDOUT_FILENO, deadline)) {
    waitForTheEnd(channel, client.get());
    return 0;
  }
  Pump toStock(channel.in.get(), STDOUT_FILENO);
  Pump fromStock(STDIN_FILENO, channel.out.get());
  if (joinBoth(toStock, fromStock, channel, client.get())) passOnTheRest(fromStock, client.get());
  return 0;
}

}  // namespace qxrsync
