#include "share/rsync/engine_ends.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <future>
#include <string_view>
#include <thread>

#include "host/copy_report.h"
#include "host/file.h"
#include "host/product.h"
#include "host/text.h"
#include "share/engine/problems.h"
#include "share/engine/receiver.h"
#include "share/engine/sender.h"
#include "share/engine/wire.h"
#include "share/rsync/child.h"
#include "share/rsync/direct_choice.h"
#include "share/rsync/environment.h"
#include "share/rsync/failure.h"
#include "share/rsync/file_systems.h"
#include "share/rsync/pace.h"
#include "share/rsync/progress.h"

namespace qxrsync {

namespace {

constexpr std::chrono::milliseconds kBarInterval{100};
constexpr int kAlmostAll = 99;  // per cent; a hundred is said at the end only
constexpr mode_t kNewDestination = 0700;
constexpr std::uint64_t kTrackedPlaces = 200000;  // some 20 MiB of memory

// Within the agent's own, which goes when the agent goes and is never copied.
std::string senderFolder() {
  const std::string folder = host::agentFolder();
  return folder.empty() ? folder : folder + "/engine";
}

// Of a variable of the environment, in such units; `otherwise` where it is not set.
std::uint64_t numberIn(const char* variable, const char* units, std::uint64_t otherwise) {
  const char* value = std::getenv(variable);
  if (value == nullptr || *value == '\0') return otherwise;
  const std::optional<std::uint64_t> number = host::parseDecimal(value);
  if (number) return *number;
  throw Failure(kExitSyntax,
                std::string("'") + value + "' in " + variable + " is not a number of " + units);
}

// Threads of a run that has failed may still wait for the channel, and end with the
// process only; nothing that they use may be taken down before.
[[noreturn]] void endWithout(int status, const std::string& text) {
  complain(text);
  ::_exit(status);
}

[[noreturn]] void endAfter(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const Failure& failure) {
    endWithout(failure.status(), failure.what());
  } catch (const engine::ProtocolError& problem) {
    endWithout(kExitProtocol, problem.what());
  } catch (const std::exception& problem) {
    endWithout(kExitSystem, problem.what());
  }
}

void writeLine(std::string_view text, bool mayWait) {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  if (!mayWait && (::poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0)) return;
  host::writeAll(STDOUT_FILENO, text);  // nobody reads it: no reason to stop the transfer
}

// The share of what is in use on the sender's file systems, as far as that is
// known; of what the sender has met otherwise.
int percentOf(const engine::Reached& reached, std::uint64_t usedBytes) {
  const std::uint64_t whole = std::max(usedBytes, reached.bytesKnown);
  if (whole == 0) return 0;
  const double share = static_cast<double>(reached.bytesDone) / static_cast<double>(whole);
  return std::min(static_cast<int>(share * 100), kAlmostAll);
}

void makeDestination(const std::string& destination) {
  struct stat status {};
  if (::mkdir(destination.c_str(), kNewDestination) == 0 ||
      (::stat(destination.c_str(), &status) == 0 && S_ISDIR(status.st_mode)))
    return;
  if (errno == 0) errno = ENOTDIR;
  throw systemFailure(kExitFileSelection, "cannot create the directory '" + destination + "'");
}

class Bar {
 public:
  Bar(bool wanted, std::uint64_t usedBytes) : wanted_(wanted), usedBytes_(usedBytes) {}

  void show(const engine::Reached& reached) {
    const std::string bar = renderBar(reached.bytesDone, percentOf(reached, usedBytes_));
    if (!wanted_ || bar == shown_) return;
    shown_ = bar;
    writeLine(bar + "\r", false);
  }

  void finish(const engine::Reached& reached, int status) {
    if (!wanted_) return;
    const int percent = status == 0 ? 100 : percentOf(reached, usedBytes_);
    writeLine(renderBar(reached.bytesDone, percent) + "\n", true);
  }

 private:
  bool wanted_;
  std::uint64_t usedBytes_;
  std::string shown_;
};

// What the copy goes over, at the sender's end.
std::unique_ptr<engine::Stream> streamToNode(const std::optional<engine::IpAddress>& node) {
  std::unique_ptr<engine::Stream> direct;
  int problem = 0;
  if (node) direct = engine::connectDirectly(STDIN_FILENO, STDOUT_FILENO, *node, problem);
  if (problem == ETIMEDOUT) rememberUnreachable();
  return direct ? std::move(direct)
                : std::make_unique<engine::PlainStream>(STDIN_FILENO, STDOUT_FILENO);
}

std::unique_ptr<engine::Stream> streamToServer(const Channel& channel,
                                               std::optional<engine::Meeting>& meeting) {
  std::unique_ptr<engine::Stream> direct;
  if (meeting) direct = meeting->conclude();
  return direct ? std::move(direct)
                : std::make_unique<engine::PlainStream>(channel.in.get(), channel.out.get());
}

}  // namespace

std::string receiverFolder() {
  const char* folder = std::getenv(host::kCopyFolderVariable);
  return folder != nullptr && *folder == '/' ? folder : "/run/qxlinmigrate";
}

int fillByEngine(const EngineTask& task, Channel& channel, std::optional<engine::Meeting>& meeting,
                 const Offer& agreed, bool progressBar) {
  makeDestination(task.destination);
  std::unique_ptr<engine::Stream> stream;
  try {
    stream = streamToServer(channel, meeting);
  } catch (...) {
    endAfter(std::current_exception());
  }
  engine::ReceiverSetup setup;
  setup.channel = stream.get();
  setup.root = task.destination;
  setup.patterns = task.patterns;
  setup.accessLists = agreed.acls;
  setup.attributes = agreed.xattrs;
  setup.keepsNanoseconds = keepsNanoseconds(task.destination);
  setup.pace = wantedPace();
  setup.folder = receiverFolder();
  engine::Receiver receiver(setup);

  // Before the threads, which are to have them blocked.
  const SignalsHeld signals;
  std::packaged_task<int()> work([&] { return receiver.run(); });
  std::future<int> result = work.get_future();
  std::thread thread(std::move(work));
  Bar bar(progressBar, agreed.usedBytes);
  while (result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    const std::optional<int> signal = signals.next(kBarInterval);
    if (signal && *signal != SIGCHLD) {
      receiver.abandon();
      endWithout(kExitSignal, "stopped by a signal; incomplete files were removed");
    }
    bar.show(receiver.reached());
  }
  thread.join();
  try {
    const int status = result.get();
    bar.finish(receiver.reached(), status);
    return status;
  } catch (...) {
    endAfter(std::current_exception());
  }
}

int serveByEngine(const std::string& served, const Offer& agreed,
                  const std::optional<engine::IpAddress>& node) {
  std::unique_ptr<engine::Stream> stream;  // threads of a run that has failed still use it
  try {
    stream = streamToNode(agreed.direct ? node : std::nullopt);
    engine::SenderSetup setup;
    setup.channel = stream.get();
    setup.root = served;
    setup.accessLists = agreed.acls;
    setup.attributes = agreed.xattrs;
    setup.compression = environmentSays("QX_RSYNC_COMPRESSION", "auto", "off");
    setup.folder = senderFolder();
    setup.pace = wantedPace();
    setup.trackedPlaces = numberIn("QX_RSYNC_TRACK", "changes", kTrackedPlaces);
    return engine::runSender(setup);
  } catch (...) {
    endAfter(std::current_exception());
  }
}

}  // namespace qxrsync
