#include "agent/verify/tree_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "agent/framework/always_excluded.h"
#include "agent/verify/tree_entry.h"
#include "host/file.h"
#include "share/engine/attributes.h"
#include "share/engine/beneath.h"
#include "share/engine/listing.h"
#include "share/engine/mapped_files.h"
#include "share/engine/wire.h"

namespace agent {

namespace {

constexpr unsigned kMostThreads = 4;
// Files that are open at a time, far below a process's usual limit of 1024.
constexpr size_t kWindow = 256;
constexpr size_t kWritten = 256 << 10;
constexpr blkcnt_t kStatBlock = 512;  // bytes

/// An entry on its way into the list.
struct Pending {
  TreeEntry entry;
  host::Fd file;  // to be hashed
  bool done = true;
};

/// Hashes files on threads of its own.
class Hashers {
 public:
  Hashers() {
    const unsigned count = std::clamp(std::thread::hardware_concurrency(), 1u, kMostThreads);
    for (unsigned i = 0; i < count; ++i) threads_.emplace_back([this] { work(); });
  }
  ~Hashers() {
    {
      const std::lock_guard lock(mutex_);
      ends_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }
  Hashers(const Hashers&) = delete;
  Hashers& operator=(const Hashers&) = delete;

  void add(Pending& item) {
    item.done = false;
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(&item);
    }
    changed_.notify_all();
  }
  bool isDone(const Pending& item) {
    const std::lock_guard lock(mutex_);
    return item.done;
  }
  void waitFor(const Pending& item) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return item.done; });
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return ends_ || !waiting_.empty(); });
      if (ends_) return;
      Pending& item = *waiting_.front();
      waiting_.pop_front();
      lock.unlock();
      item.entry.content = contentOf(item.file.get());
      if (!item.entry.content) item.entry.problem = std::string("cannot read: ") + strerror(errno);
      item.file = host::Fd();
      lock.lock();
      item.done = true;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Pending*> waiting_;
  bool ends_ = false;
  std::vector<std::thread> threads_;
};

class Lister {
 public:
  Lister(const std::string& top, const engine::Rules& rules, int to,
         const std::function<bool()>& stopped)
      : tree_(top), rules_(rules), to_(to), stopped_(stopped) {
    if (!tree_.open()) throw std::runtime_error("cannot read " + top + ": " + strerror(errno));
    for (const auto& mapped : engine::writableMappings()) written_.insert(mapped);
  }

  void run() {
    engine::putFixed64(out_, static_cast<std::uint64_t>(time(nullptr)));
    struct stat status;
    if (fstat(tree_.root(), &status) != 0) throw std::runtime_error(strerror(errno));
    TreeEntry top = entryOf("", status);
    takeAttributes(engine::AttributePlace(tree_.root()), top);
    Pending item;
    item.entry = std::move(top);
    put(std::move(item));
    // Directories that are still to be listed, the next one last.
    std::vector<std::string> directories{""};
    while (!directories.empty()) {
      const std::string path = std::move(directories.back());
      directories.pop_back();
      std::vector<std::string> below = listDirectory(path);
      std::move(below.rbegin(), below.rend(), std::back_inserter(directories));
    }
    while (!window_.empty()) putOut();
    engine::putFixed32(out_, 0);
    flush();
  }

 private:
  // The directories in it, sorted.
  std::vector<std::string> listDirectory(const std::string& path) {
    std::vector<std::string> below;
    const host::Fd directory = tree_.openDirectory(path);
    engine::Listing listing;
    // One that has gone meanwhile has no entries; the others' lack says so.
    if (!directory || !listing.read(directory.get())) return below;
    std::vector<std::string> names;
    for (const engine::Listing::Item& item : listing.items())
      names.emplace_back(listing.name(item));
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      if (stopped_()) throw std::runtime_error("the comparison was stopped");
      struct stat status;
      if (fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
      const std::string entryPath = engine::joinPath(path, name);
      if (rules_.excludes(entryPath, S_ISDIR(status.st_mode))) continue;
      Pending item;
      item.entry = entryOf(entryPath, status);
      read(directory.get(), name, status, item);
      if (S_ISDIR(status.st_mode)) below.push_back(entryPath);
      put(std::move(item));
    }
    return below;
  }

  TreeEntry entryOf(const std::string& path, const struct stat& status) {
    TreeEntry entry;
    entry.path = path;
    entry.mode = status.st_mode;
    entry.uid = status.st_uid;
    entry.gid = status.st_gid;
    entry.seconds = status.st_mtim.tv_sec;
    entry.nanoseconds = static_cast<std::uint32_t>(status.st_mtim.tv_nsec);
    entry.changed = status.st_ctim.tv_sec;
    if (S_ISREG(status.st_mode)) {
      entry.size = static_cast<std::uint64_t>(status.st_size);
      entry.occupied = static_cast<std::uint64_t>(status.st_blocks * kStatBlock);
      entry.written = written_.count({status.st_dev, status.st_ino}) != 0;
    }
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
      entry.major = major(status.st_rdev);
      entry.minor = minor(status.st_rdev);
    }
    if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) {
      const auto [at, isNew] =
          files_.try_emplace({status.st_dev, status.st_ino}, files_.size() + 1);
      entry.file = at->second;
    }
    return entry;
  }

  void read(int directory, const std::string& name, const struct stat& status, Pending& item) {
    if (S_ISLNK(status.st_mode)) {
      char target[PATH_MAX];
      const ssize_t length = readlinkat(directory, name.c_str(), target, sizeof target);
      if (length > 0)
        item.entry.target.assign(target, static_cast<size_t>(length));
      else
        item.entry.target = "?", item.entry.problem = strerror(errno);
    }
    if (S_ISREG(status.st_mode)) {
      item.file = engine::openEntry(directory, name, O_RDONLY | O_NONBLOCK);
      if (!item.file) item.entry.problem = std::string("cannot open: ") + strerror(errno);
    }
    takeAttributes(item.file ? engine::AttributePlace(item.file.get())
                             : engine::AttributePlace(directory, name),
                   item.entry);
  }

  static void takeAttributes(const engine::AttributePlace& place, TreeEntry& entry) {
    std::string problem;
    if (!engine::readAttributes(place, {true, true}, entry.attributes, problem)) {
      entry.problem = problem;
    }
  }

  void put(Pending item) {
    window_.push_back(std::move(item));
    if (window_.back().file) hashers_.add(window_.back());
    while (!window_.empty() && (window_.size() >= kWindow || hashers_.isDone(window_.front()))) {
      putOut();
    }
  }

  void putOut() {
    hashers_.waitFor(window_.front());
    putTreeEntry(out_, window_.front().entry);
    window_.pop_front();
    if (out_.size() >= kWritten) flush();
  }

  void flush() {
    if (!host::writeAll(to_, out_.view())) {
      throw std::runtime_error(std::string("the list cannot be sent: ") + strerror(errno));
    }
    out_.clear();
  }

  engine::Tree tree_;
  const engine::Rules& rules_;
  int to_;
  const std::function<bool()>& stopped_;
  engine::Buffer out_;
  std::set<std::pair<dev_t, ino_t>> written_;
  std::map<std::pair<dev_t, ino_t>, std::uint64_t> files_;  // with several names
  // Entries stay where they are while others come and go at the ends.
  std::deque<Pending> window_;
  Hashers hashers_;  // ends before what it works on
};

}  // namespace

void listTree(const std::string& top, const engine::Rules& rules, int to,
              const std::function<bool()>& stopped) {
  Lister(top, rules, to, stopped).run();
}

engine::Rules rulesFor(std::vector<std::string> excludes) {
  for (const AlwaysExcluded& one : kAlwaysExcluded) excludes.emplace_back(one.pattern);
  for (const std::string& pattern : excludes) {
    if (engine::Rules::understands(pattern)) continue;
    throw std::runtime_error("what the exclusion '" + pattern +
                             "' leaves out cannot be told here, so nothing was compared");
  }
  return engine::Rules(excludes);
}

}  // namespace agent
