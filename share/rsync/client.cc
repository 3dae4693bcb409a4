#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "host/file.h"
#include "host/process.h"
#include "share/engine/wire.h"
#include "share/rsync/child.h"
#include "share/rsync/descriptor.h"
#include "share/rsync/direct_choice.h"
#include "share/rsync/disk_reserve.h"
#include "share/rsync/enclosure.h"
#include "share/rsync/engine_ends.h"
#include "share/rsync/error_output.h"
#include "share/rsync/failure.h"
#include "share/rsync/file_systems.h"
#include "share/rsync/handover.h"
#include "share/rsync/handshake.h"
#include "share/rsync/progress.h"
#include "share/rsync/run.h"
#include "share/rsync/stock.h"

namespace qxrsync {

namespace {

constexpr std::chrono::milliseconds kLookInterval{100};

Channel takeChannel(const Options& options) {
  Channel channel;
  channel.in = takeInherited(*options.fdIn, Direction::kReading, "--fdin");
  if (*options.fdIn == *options.fdOut) {  // one socket for both directions
    channel.out = host::Fd(::fcntl(channel.in.get(), F_DUPFD_CLOEXEC, 3));
    if (!channel.out) throw systemFailure(kExitSystem, "cannot duplicate a file descriptor");
  } else {
    channel.out = takeInherited(*options.fdOut, Direction::kWriting, "--fdout");
  }
  // A caller that holds several channels may leak the end of one to the program that serves
  // another; a channel whose far end is open by accident is never seen to end.
  host::closeAllBut({channel.in.get(), channel.out.get()}, STDERR_FILENO + 1);
  enlargePipe(channel.in.get(), kPipeSize);
  enlargePipe(channel.out.get(), kPipeSize);
  return channel;
}

// When nobody reads it, that is no reason to stop the transfer.
void show(std::string_view text) { host::writeAll(STDOUT_FILENO, text); }

// A bar nobody has room for is dropped; the next one will do.
void writeIfThereIsRoom(const std::string& text) {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  if (::poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0) show(text);
}

// Stock rsync writes a line per file, so its output is looked at now and then
// rather than line by line.
void readProgress(int from, ProgressBar& bar) {
  std::array<char, 65536> buffer;
  while (true) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    show(bar.feed({buffer.data(), static_cast<size_t>(count)}));
  }
}

// With a bar if `progress` is a descriptor that stock rsync tells it to.
int superviseCopy(Child& child, const SignalsHeld& signals, int progress, ProgressBar bar,
                  const DiskReserve& reserve, ErrorOutput& errors) {
  std::optional<std::string> problem;
  std::optional<int> status;
  while (!(status = child.ended())) {
    const std::optional<int> signal = signals.next(kLookInterval);
    if (signal && *signal != SIGCHLD) child.signal(*signal);
    if (!problem && (problem = reserve.problem())) {
      // Before what stock rsync says about being told to end.
      complain(*problem);
      child.signal(SIGTERM);
    }
    errors.pass();
    if (progress < 0) continue;
    readProgress(progress, bar);
    if (const std::optional<std::string> line = bar.changedBar()) writeIfThereIsRoom(*line + "\r");
  }
  if (progress >= 0) {
    readProgress(progress, bar);
    show(bar.finish(*status == 0));
  }
  // Before a death by a signal is repeated.
  errors.conclude(!problem && WIFEXITED(*status) ? WEXITSTATUS(*status) : kExitFileIo);
  return problem ? kExitFileIo : ownStatus(exitLike(*status));
}

// Inside nothing listens, so whoever is to come has come before.
void meetServer(const Channel& channel, const Offer& agreed,
                std::optional<engine::Meeting>& meeting) {
  try {
    if (agreed.direct) meeting.emplace(channel.in.get(), channel.out.get());
  } catch (const engine::ProtocolError& problem) {
    throw Failure(kExitProtocol, problem.what());
  }
}

// By the engine, in a process of its own that is closed in.
int fillInside(const EngineTask& task, Channel& channel, const Offer& agreed, bool progressBar,
               const DiskReserve& reserve, ErrorOutput& errors) {
  std::optional<engine::Meeting> meeting;
  meetServer(channel, agreed, meeting);
  const std::string folder = receiverFolder();
  ::mkdir(folder.c_str(), 0700);  // one that it cannot have it does without
  std::optional<Enclosure> enclosure;
  Child::Setup setup;
  if (canEnclose())
    setup.enclosure =
        &enclosure.emplace(task.destination, agreed.xattrs, std::vector<std::string>{folder});
  setup.task = [&] { return fillByEngine(task, channel, meeting, agreed, progressBar); };
  setup.standardError = errors.childEnd();
  errors.acceptNotes();
  const SignalsHeld signals;
  Child child(setup, signals);
  channel = {};
  meeting.reset();
  errors.letGoOfChildEnd();
  return superviseCopy(child, signals, -1, ProgressBar(0), reserve, errors);
}

// Settings in the environment that would make stock rsync speak to its server
// in a way that only its own command line announces.
void clearWireSettings() {
  for (const char* name : {"RSYNC_PROTECT_ARGS", "RSYNC_OLD_ARGS", "RSYNC_ICONV"}) ::unsetenv(name);
}

}  // namespace

int runClient(const Options& options) {
  ensureStandardStreams();
  std::optional<Enclosure> enclosure;
  Child::Setup setup;
  host::FdPair handover;
  std::uint64_t usedBytes = 0;
  DiskReserve reserve;
  ErrorOutput errors;

  if (options.fdIn) {
    reserve = DiskReserve::fromEnvironment();
    ignoreBrokenPipes();
    clearWireSettings();
    Channel channel = takeChannel(options);  // nothing else is open behind it
    errors = ErrorOutput(options.destination);
    Offer offer = probeByWriting(options.destination);
    offer.descriptors = carriesDescriptors(channel.in.get(), channel.out.get());
    const std::optional<EngineTask> task = engineTask(options);
    offer.engine = task.has_value();
    offer.direct = offer.engine && directAllowed();
    const Offer agreed =
        exchangeOffers(channel.in.get(), channel.out.get(), offer, Deadline(kHandshakeTimeout));
    if (agreed.engine)
      return fillInside(*task, channel, agreed, options.progressBar, reserve, errors);
    errors.addNote(std::string("copied by stock rsync, as ") +
                   (task ? "the other end asks for it" : "this end asks for it"));
    usedBytes = agreed.usedBytes;
    handover = makeSocketPair();
    sendDescriptors(handover.first.get(), channel.in.get(), channel.out.get());
    setup.inherited = handover.second.get();
    setup.arguments.push_back("--rsh=" + quoteForShellOption(host::ownProgram()) + " " +
                              (agreed.descriptors ? kHandOverOption : kJoinOption) + " " +
                              std::to_string(setup.inherited));
    if (agreed.acls) setup.arguments.emplace_back("-A");
    if (agreed.xattrs) setup.arguments.emplace_back("-X");
    if (canEnclose()) enclosure.emplace(options.destination, agreed.xattrs);
    // Or else what changes twice within a second is taken for unchanged.
    if (keepsNanoseconds(options.destination)) setup.arguments.emplace_back("--modify-window=-1");
  }

  host::FdPair progress;
  if (options.progressBar) {
    progress = makePipe();
    enlargePipe(progress.second.get(), kPipeSize);
    setNonBlocking(progress.first.get(), true);
    setup.standardOutput = progress.second.get();
    setup.arguments.insert(setup.arguments.end(), {"--info=progress2", "--no-human-readable"});
  }
  setup.arguments.insert(setup.arguments.end(), options.arguments.begin(), options.arguments.end());

  const SignalsHeld signals;
  Child::Setup keeper;
  setup.standardError = keeper.standardError = errors.childEnd();
  if (enclosure) {
    // With the first process of the enclosure all others die at once. Stock rsync's first
    // ends before the one that has files to tidy up, so there is another one above it.
    keeper.enclosure = &*enclosure;
    keeper.task = [&] {
      handover.first.reset();
      progress.first.reset();
      Child stock(setup, signals);
      handover.second.reset();
      progress.second.reset();
      errors.letGoOfChildEnd();
      return supervise(stock, signals);
    };
  }
  Child child(enclosure ? keeper : setup, signals);
  handover.second.reset();
  progress.second.reset();
  errors.letGoOfChildEnd();
  return superviseCopy(child, signals, progress.first.get(), ProgressBar(usedBytes), reserve,
                       errors);
}

}  // namespace qxrsync
