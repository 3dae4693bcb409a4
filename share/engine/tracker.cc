#include "share/engine/tracker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <unordered_map>

#include "host/fd.h"
#include "share/engine/file_handles.h"

namespace engine {

namespace {

using host::Fd;
using Clock = std::chrono::steady_clock;

constexpr int kLookInterval = 1000;                  // milliseconds
constexpr std::chrono::seconds kLongestLife{86400};  // a pass may last long
constexpr std::chrono::seconds kLongestCatchingUp{10};
constexpr size_t kReadSize = 64 << 10;  // bytes

class Tracker {
 public:
  explicit Tracker(const TrackerSetup& setup)
      : setup_(setup), socketPath_(trackerSocket(setup.folder)) {}

  bool listen();
  void run();

 private:
  bool isWanted() const;
  bool readSome();
  void catchUp();
  void add(std::string_view object, std::string_view name);
  void forgetNames();
  void forgetRemoved();
  bool serve();
  bool answer();

  const TrackerSetup setup_;
  const std::string socketPath_;
  Fd listener_;
  struct stat socket_ {};
  Fd agent_{::fcntl(kTrackerAgent, F_GETFD) >= 0 ? kTrackerAgent : -1};
  Fd events_{kTrackerEvents};
  Fd peer_{kTrackerStarter};
  bool trusted_ = true;  ///< the peer goes on with what this has
  bool kept_ = false;    ///< and said that it is to stay
  std::string identity_;
  std::string note_;
  Clock::time_point ends_ = Clock::now() + kLongestLife;
  bool complete_ = true;
  std::unordered_map<std::string, std::set<std::string>> changes_;  ///< see Changed
  size_t names_ = 0;                                                ///< in all of them
};

bool Tracker::listen() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socketPath_.size() >= sizeof address.sun_path) return false;
  socketPath_.copy(address.sun_path, socketPath_.size());
  listener_ = Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ::unlink(address.sun_path);  // the tracker of an earlier pass ends by this
  return listener_ &&
         ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
             0 &&
         ::listen(listener_.get(), 1) == 0 && ::lstat(address.sun_path, &socket_) == 0;
}

bool Tracker::isWanted() const {
  struct stat now {};
  return Clock::now() < ends_ && ::lstat(socketPath_.c_str(), &now) == 0 &&
         now.st_dev == socket_.st_dev && now.st_ino == socket_.st_ino;
}

void Tracker::add(std::string_view object, std::string_view name) {
  if (!complete_) return;
  const auto [at, isNew] = changes_.try_emplace(std::string(object));
  std::set<std::string>& names = at->second;
  if (!isNew && names.empty()) return;  // all of it anyway
  names_ -= names.size();
  if (!name.empty()) names.emplace(name);
  if (name.empty() || names.size() > kMostChangedNames) names.clear();
  names_ += names.size();
  if (changes_.size() + names_ <= setup_.mostPlaces) return;
  // Not by so little that it would be soon again.
  forgetRemoved();
  if (changes_.size() + names_ <= setup_.mostPlaces / 2) return;
  forgetNames();
  if (changes_.size() <= setup_.mostPlaces - setup_.mostPlaces / 4) return;
  complete_ = false;
  changes_ = {};
}

void Tracker::forgetNames() {
  for (auto& change : changes_) change.second.clear();
  names_ = 0;
}

// What has been removed since was in a directory that has changed as well. Every file that
// is removed is told by itself, so a busy server has many of them.
void Tracker::forgetRemoved() {
  std::vector<OpenMount> mounts;
  for (const std::string& path : setup_.mounts)
    if (auto mount = openMount(path)) mounts.push_back(std::move(*mount));
  std::erase_if(changes_, [&](const auto& change) {
    const ChangedObject object = ChangedObject::from(change.first);
    const bool removed = std::any_of(mounts.begin(), mounts.end(), [&](const OpenMount& mount) {
      return mount.fsid == object.fsid && isRemoved(openObject(mount, object));
    });
    if (removed) names_ -= change.second.size();
    return removed;
  });
}

// False when there is nothing at the moment.
bool Tracker::readSome() {
  alignas(8) std::array<char, kReadSize> buffer;
  const ssize_t count = ::read(events_.get(), buffer.data(), buffer.size());
  if (count < 0 && errno == EINTR) return true;
  if (count < 0 && errno == EAGAIN) return false;
  if (count <= 0 ||
      !readEvents({buffer.data(), static_cast<size_t>(count)},
                  [this](std::string_view object, std::string_view name) { add(object, name); }))
    complete_ = false;
  return count > 0;
}

// Whatever happened before it was asked.
void Tracker::catchUp() {
  const Clock::time_point end = Clock::now() + kLongestCatchingUp;
  while (readSome())
    if (Clock::now() > end) complete_ = false;
}

bool Tracker::answer() {
  catchUp();
  TrackerAnswer answer;
  answer.complete = complete_;
  answer.note = note_;
  answer.devices = watchedFileSystems(events_.get());
  for (auto& [object, names] : changes_) answer.changes.push_back({object, std::move(names)});
  changes_.clear();
  names_ = 0;
  complete_ = true;
  Buffer payload;
  putAnswer(payload, answer);
  return sendMessage(peer_.get(), payload);
}

// False when the peer is to be served no more.
bool Tracker::serve() {
  Buffer payload;
  if (!receiveMessage(peer_.get(), payload)) return false;
  const TrackerRequest request = takeRequest(payload.view());
  if (request.kind == TrackerRequest::Kind::kTake) {
    trusted_ = trusted_ || (kept_ && request.identity == identity_);
    kept_ = false;  // what it takes is known to nobody else
    return trusted_ && answer();
  }
  if (!trusted_) return false;
  kept_ = true;
  identity_ = request.identity;
  note_ = request.note;
  ends_ = Clock::now() + std::min(request.life, kLongestLife);
  return true;
}

void Tracker::run() {
  while (isWanted()) {
    pollfd all[] = {{events_.get(), POLLIN, 0},
                    {peer_ ? peer_.get() : listener_.get(), POLLIN, 0},
                    {agent_.get(), POLLIN, 0}};
    if (::poll(all, 3, kLookInterval) <= 0) continue;
    if (all[2].revents != 0) return;
    if (all[0].revents != 0) readSome();
    if (all[1].revents == 0) continue;
    if (!peer_) {
      peer_ = Fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      trusted_ = false;
    } else if (!serve()) {
      peer_.reset();
      if (!kept_) return;
    }
  }
}

}  // namespace

int runTracker(const TrackerSetup& setup) {
  // What ends the login that has started it must not end it.
  for (const int ignored : {SIGHUP, SIGINT, SIGPIPE}) ::signal(ignored, SIG_IGN);
  ::prctl(PR_SET_NAME, "qxrsync-track");
  if (::chdir("/") != 0) return 1;
  Tracker tracker(setup);
  if (!tracker.listen()) return 1;
  tracker.run();
  return 0;
}

}  // namespace engine
