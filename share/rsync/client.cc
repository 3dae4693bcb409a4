#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "share/rsync/child.h"
#include "share/rsync/engine_ends.h"
#include "share/rsync/failure.h"
#include "share/rsync/file_systems.h"
#include "share/rsync/handover.h"
#include "share/rsync/handshake.h"
#include "share/rsync/progress.h"
#include "share/rsync/run.h"
#include "share/rsync/stock.h"

namespace qxrsync {

namespace {

constexpr std::chrono::seconds kHandshakeTimeout{60};
constexpr std::chrono::milliseconds kBarInterval{100};
constexpr int kPipeSize = 1 << 20;  // bytes; room for a line per file between two looks

Channel takeChannel(const Options& options) {
  Channel channel;
  channel.in = takeInherited(*options.fdIn, Direction::kReading, "--fdin");
  if (*options.fdIn == *options.fdOut) {  // one socket for both directions
    channel.out = Descriptor(::fcntl(channel.in.get(), F_DUPFD_CLOEXEC, 3));
    if (!channel.out.open()) throw systemFailure(kExitSystem, "cannot duplicate a file descriptor");
  } else {
    channel.out = takeInherited(*options.fdOut, Direction::kWriting, "--fdout");
  }
  closeStrayDescriptors(channel.in.get(), channel.out.get());
  enlargePipe(channel.in.get(), kPipeSize);
  enlargePipe(channel.out.get(), kPipeSize);
  return channel;
}

void writeAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;  // nobody reads it: no reason to stop the transfer
    text.remove_prefix(static_cast<size_t>(count));
  }
}

// A bar nobody has room for is dropped; the next one will do.
void writeIfThereIsRoom(const std::string& text) {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  if (::poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0) writeAll(text);
}

// Stock rsync writes a line per file, so its output is looked at now and then
// rather than line by line.
void readProgress(int from, ProgressBar& bar) {
  std::array<char, 65536> buffer;
  while (true) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    writeAll(bar.feed({buffer.data(), static_cast<size_t>(count)}));
  }
}

int superviseWithBar(Child& child, const SignalsHeld& signals, int progress, ProgressBar bar) {
  std::optional<int> status;
  while (!(status = child.ended())) {
    const std::optional<int> signal = signals.next(kBarInterval);
    if (signal && *signal != SIGCHLD) child.signal(*signal);
    readProgress(progress, bar);
    if (const std::optional<std::string> line = bar.changedBar()) writeIfThereIsRoom(*line + "\r");
  }
  readProgress(progress, bar);
  writeAll(bar.finish(*status == 0));
  return exitLike(*status);
}

// Settings in the environment that would make stock rsync speak to its server
// in a way that only its own command line announces.
void clearWireSettings() {
  for (const char* name : {"RSYNC_PROTECT_ARGS", "RSYNC_OLD_ARGS", "RSYNC_ICONV"}) ::unsetenv(name);
}

}  // namespace

int runClient(const Options& options) {
  ensureStandardStreams();
  Child::Setup setup;
  DescriptorPair handover;
  std::uint64_t usedBytes = 0;

  if (options.fdIn) {
    ignoreBrokenPipes();
    clearWireSettings();
    Channel channel = takeChannel(options);
    Offer offer = probeByWriting(options.destination);
    offer.descriptors = carriesDescriptors(channel.in.get(), channel.out.get());
    const std::optional<EngineTask> task = engineTask(options);
    offer.engine = task.has_value();
    const Offer agreed =
        exchangeOffers(channel.in.get(), channel.out.get(), offer, Deadline(kHandshakeTimeout));
    if (agreed.engine) return fillByEngine(*task, channel, agreed, options.progressBar);
    usedBytes = agreed.usedBytes;
    handover = makeSocketPair();
    sendDescriptors(handover.first.get(), channel.in.get(), channel.out.get());
    setup.inherited = handover.second.get();
    setup.arguments.push_back("--rsh=" + quoteForShellOption(ownPath()) + " " +
                              (agreed.descriptors ? kHandOverOption : kJoinOption) + " " +
                              std::to_string(setup.inherited));
    if (agreed.acls) setup.arguments.emplace_back("-A");
    if (agreed.xattrs) setup.arguments.emplace_back("-X");
    // Or else what changes twice within a second is taken for unchanged.
    if (keepsNanoseconds(options.destination)) setup.arguments.emplace_back("--modify-window=-1");
  }

  DescriptorPair progress;
  if (options.progressBar) {
    progress = makePipe();
    enlargePipe(progress.second.get(), kPipeSize);
    setNonBlocking(progress.first.get(), true);
    setup.standardOutput = progress.second.get();
    setup.arguments.insert(setup.arguments.end(), {"--info=progress2", "--no-human-readable"});
  }
  setup.arguments.insert(setup.arguments.end(), options.arguments.begin(), options.arguments.end());

  const SignalsHeld signals;
  Child child(setup, signals);
  handover.second.close();
  progress.second.close();
  if (options.progressBar)
    return superviseWithBar(child, signals, progress.first.get(), ProgressBar(usedBytes));
  return supervise(child, signals);
}

}  // namespace qxrsync
