#include "share/engine/tracking.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <fstream>

#include "host/descriptors.h"
#include "host/error.h"
#include "host/process.h"
#include "share/engine/file_events.h"

namespace engine {

namespace {

using host::Fd;

std::string linkTarget(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t size = ::readlink(path.c_str(), target, sizeof target);
  return size > 0 ? std::string(target, static_cast<size_t>(size)) : std::string();
}

pid_t parentOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text;
  std::getline(file, text);
  const size_t name = text.rfind(')');  // which may hold anything
  int parent = 0;
  if (name == std::string::npos || std::sscanf(text.c_str() + name, ") %*c %d", &parent) != 1)
    return 0;
  return parent;
}

// The agent that this process was started by, as a pidfd: the outermost process that
// runs from the agent's folder. None where the agent is not from there.
Fd agentOf(const std::string& folder) {
  const std::string prefix = folder.substr(0, folder.rfind('/') + 1);
  Fd agent;
  for (pid_t at = ::getppid(); at > 1; at = parentOf(at)) {
    if (!linkTarget("/proc/" + std::to_string(at) + "/exe").starts_with(prefix)) break;
    agent = Fd(static_cast<int>(::syscall(SYS_pidfd_open, at, 0)));
  }
  return agent;
}

// Puts the descriptors where the tracker looks for them. Async-signal-safe.
void arrange(int starter, int events, int agent) {
  // Out of each other's way first.
  const int above = kTrackerAgent + 1;
  starter = ::fcntl(starter, F_DUPFD, above);
  events = ::fcntl(events, F_DUPFD, above);
  agent = agent < 0 ? -1 : ::fcntl(agent, F_DUPFD, above);
  const int nothing = ::open("/dev/null", O_RDWR);
  ::dup2(nothing, STDOUT_FILENO);
  ::dup2(nothing, STDERR_FILENO);
  ::dup2(starter, kTrackerStarter);
  ::dup2(events, kTrackerEvents);
  if (agent >= 0)
    ::dup2(agent, kTrackerAgent);
  else
    ::close(kTrackerAgent);
  host::closeAllBut({}, above);
}

// A process of nobody's: not of this session, nor a child of this one.
void startApart(const std::vector<std::string>& words, int starter, int events, int agent) {
  const std::vector<char*> arguments = host::pointersTo(words);
  const pid_t child = ::fork();
  if (child == 0) {
    ::setsid();
    if (::fork() != 0) ::_exit(0);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    arrange(starter, events, agent);
    ::execv("/proc/self/exe", arguments.data());
    ::_exit(1);
  }
  while (child > 0 && ::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

void Tracking::start(const std::string& top, const std::vector<MountBelow>& mounts) {
  const Fd events = mostPlaces_ == 0 ? Fd() : openEvents();
  if (!events) return;
  const std::string self = linkTarget("/proc/self/exe");
  std::vector<std::string> words = {self, kTrackOption, folder_, std::to_string(mostPlaces_)};
  const size_t without = words.size();
  for (const MountBelow& mount : mounts) {
    const std::string path = absolutePath(top, mount.path);
    if (tellsOfChanges(mount.type) && watchFileSystem(events.get(), path)) words.push_back(path);
  }
  host::FdPair ends = host::makeSocketPair();
  if (words.size() == without || !ends || (::mkdir(folder_.c_str(), 0700) != 0 && errno != EEXIST))
    return;
  startApart(words, ends.second.get(), events.get(), agentOf(folder_).get());
  socket_ = std::move(ends.first);
}

void Tracking::resume(const std::string& identity) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = trackerSocket(folder_);
  if (mostPlaces_ == 0 || path.size() >= sizeof address.sun_path) return;
  path.copy(address.sun_path, path.size());
  Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket ||
      ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return;
  socket_ = std::move(socket);
  identity_ = identity;
}

bool Tracking::ask(const TrackerRequest& request) {
  Buffer payload;
  putRequest(payload, request);
  if (socket_ && sendMessage(socket_.get(), payload)) return true;
  socket_.reset();
  return false;
}

std::optional<TrackerAnswer> Tracking::take() {
  Buffer payload;
  TrackerRequest request;
  request.identity = identity_;
  if (!ask(request)) return std::nullopt;
  try {
    if (receiveMessage(socket_.get(), payload)) return takeAnswer(payload.view());
  } catch (const ProtocolError&) {
    // As if it had not answered.
  }
  socket_.reset();
  return std::nullopt;
}

void Tracking::keep(const std::string& identity, const std::string& note,
                    std::chrono::seconds life) {
  TrackerRequest request;
  request.kind = TrackerRequest::Kind::kKeep;
  request.identity = identity;
  request.note = note;
  request.life = life;
  ask(request);
}

}  // namespace engine
