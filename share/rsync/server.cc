#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <optional>

#include "share/rsync/child.h"
#include "share/rsync/descriptor.h"
#include "share/rsync/direct_choice.h"
#include "share/rsync/engine_ends.h"
#include "share/rsync/file_systems.h"
#include "share/rsync/handover.h"
#include "share/rsync/handshake.h"
#include "share/rsync/pace.h"
#include "share/rsync/run.h"
#include "share/rsync/stock.h"

namespace qxrsync {

namespace {

constexpr std::chrono::milliseconds kServerLookInterval{500};

// Has stock rsync send what it says of files to the client, which must know what is left out.
// Older ones know no other way, nor this option.
constexpr const char* kTellClient = "--no-msgs2stderr";

// From here on only stock rsync holds the channel, so its end is the channel's.
void letGoOfChannel() {
  const host::Fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
    if (!null || ::dup2(null.get(), fd) < 0) ::close(fd);
}

// The channel carries nothing, but its closing still means that the client is gone.
int superviseBesideChannel(Child& child, const SignalsHeld& signals) {
  std::optional<int> status;
  while (!(status = child.ended())) {
    const std::optional<int> signal = signals.next(kServerLookInterval);
    pollfd channel{STDIN_FILENO, POLLIN, 0};
    if (signal && *signal != SIGCHLD)
      child.signal(*signal);
    else if (!signal && ::poll(&channel, 1, 0) == 1)
      child.signal(SIGKILL);
  }
  return ownStatus(exitLike(*status));
}

}  // namespace

int runServer(const Options& options) {
  ensureStandardStreams();
  ignoreBrokenPipes();
  // Other descriptors stay: an agent may have given one that tells it, by being
  // closed, that the channel has no user any more.
  enlargePipe(STDIN_FILENO, kPipeSize);
  enlargePipe(STDOUT_FILENO, kPipeSize);

  Offer offer = probeByReading(options.served);
  offer.usedBytes = usedBytesBelow(options.served);
  offer.descriptors = carriesDescriptors(STDIN_FILENO, STDOUT_FILENO);
  offer.engine = engineServes(options);
  const std::optional<engine::IpAddress> node = nodeToReach();
  offer.direct = node.has_value();
  const Deadline deadline(kHandshakeTimeout);
  const Offer agreed = exchangeOffers(STDIN_FILENO, STDOUT_FILENO, offer, deadline);
  if (agreed.engine) return serveByEngine(options.served, agreed, node);
  const Capabilities capabilities = receiveCapabilities(STDIN_FILENO, deadline);
  const host::CopyPace pace = host::slowerOf(wantedPace(), capabilities.pace);
  Channel streams;
  if (agreed.descriptors) {
    streams = takeStreams(STDIN_FILENO, STDOUT_FILENO, deadline).value_or(Channel());
  }

  Child::Setup setup;
  if (streams.in) {
    setup.standardInput = streams.in.get();
    setup.standardOutput = streams.out.get();
  }
  setup.deathSignal = SIGKILL;  // it only reads, so there is nothing to tidy up
  setup.arguments = {"--server", "--sender"};
  if (stockKnows(kTellClient)) setup.arguments.emplace_back(kTellClient);
  if (agreed.acls) setup.arguments.emplace_back("-A");
  if (agreed.xattrs) setup.arguments.emplace_back("-X");
  if (!capabilities.word.empty()) setup.arguments.push_back("-e" + capabilities.word);
  if (pace.kibPerSecond > 0)
    setup.arguments.push_back("--bwlimit=" + std::to_string(pace.kibPerSecond));
  setup.arguments.insert(setup.arguments.end(), options.arguments.begin() + 2,
                         options.arguments.end());

  host::stepBack(pace);  // and so does the child
  const SignalsHeld signals;
  Child child(setup, signals);
  if (streams.in) {
    streams = Channel();
    return superviseBesideChannel(child, signals);
  }
  letGoOfChannel();
  return ownStatus(supervise(child, signals));
}

}  // namespace qxrsync
