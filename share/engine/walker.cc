#include "share/engine/walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "share/engine/case_folding.h"

namespace engine {

namespace {

std::string because(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

unsigned typeOf(int directory, const std::string& name, unsigned type) {
  struct stat status {};
  if (type != DT_UNKNOWN) return type;
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return type;
  return IFTODT(status.st_mode);
}

}  // namespace

Entry entryOf(const std::string& name, const struct stat& status) {
  Entry entry;
  entry.name = name;
  entry.mode = status.st_mode;
  entry.uid = status.st_uid;
  entry.gid = status.st_gid;
  entry.seconds = status.st_mtim.tv_sec;
  entry.nanoseconds = static_cast<std::uint32_t>(status.st_mtim.tv_nsec);
  if (S_ISREG(status.st_mode)) entry.size = static_cast<std::uint64_t>(status.st_size);
  if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
    entry.major = major(status.st_rdev);
    entry.minor = minor(status.st_rdev);
  }
  return entry;
}

void Incomplete::add(const std::string& directory) {
  const std::scoped_lock lock(mutex_);
  directories_.insert(directory);
}

std::set<std::string> Incomplete::take() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(directories_, {});
}

Walker::Walker(Walk& walk, RecordStream& stream)
    : walk_(walk), stream_(stream), contents_(stream, walk.bytesDone) {}

void Walker::run(const Job& job) {
  if (walk_.visits != nullptr && job.names.empty() && !walk_.visits->claim(job.directory)) return;
  path_ = job.directory;
  const Fd directory = walk_.tree.openDirectory(job.directory);
  if (!directory) {
    if (saysMissing(errno))
      walk_.problems.addVanished(job.directory);
    else
      fail({}, because("cannot open the directory"));
    return;
  }
  begun_ = false;
  before_.reset();
  if (job.wanted)
    runWanted(directory.get(), job);
  else if (job.names.empty())
    runWhole(directory.get(), job.directory);
  else
    runChanged(directory.get(), job);
}

void Walker::runWhole(int directory, const std::string& path) {
  ++walk_.directories;
  struct stat own {};
  ::fstat(directory, &own);
  if (walk_.before != nullptr) before_ = walk_.before->directory(path);
  const bool complete = listing_.read(directory);
  if (!complete) {
    fail({}, because("cannot read the directory"));
    walk_.unlisted = true;
  }
  goesEverywhere_ = walk_.visits == nullptr || walk_.visits->goesEverywhere(own.st_dev, path);
  listing_.sortByInode();
  remembers_ = walk_.after != nullptr && complete;
  if (remembers_) part_.begin(path, own);
  flags_ = complete && !before_ ? kComplete : 0;
  if (!before_) begin();
  passOverSeen();
  addAll(directory, walk_.way == Way::kComparing);
  if (before_ && complete) removeGone();
  if (begun_ || !unchanged(before_->own(), own)) endDirectory(directory);
  if (remembers_) walk_.after->add(part_);
}

void Walker::addAll(int directory, bool comparing) {
  for (const Listing::Item& item : listing_.items()) {
    const std::string name(listing_.name(item));
    if (seen_.contains(name)) continue;
    const unsigned type = typeOf(directory, name, item.type);
    if (walk_.rules.excludes(pathOf(name), type == DT_DIR)) continue;
    addEntry(directory, name, type, item.inode, comparing);
  }
}

void Walker::addEntry(int directory, const std::string& name, unsigned type, ino_t inode,
                      bool comparing) {
  if (walk_.visits != nullptr) noteReplaced(name, type, inode);
  if (type == DT_DIR)
    addSubdirectory(directory, name);
  else if (type != DT_REG)
    addOther(directory, name);
  else if (comparing)
    listFile(directory, name);
  else
    addFile(directory, name);
}

// The other entries of a directory that is the one that it was are as they were; what is
// known of them is taken over in the end.
void Walker::runChanged(int directory, const Job& job) {
  struct stat own {};
  ::fstat(directory, &own);
  before_ = walk_.before->directory(path_);
  const bool isSame =
      before_ && before_->own().device == own.st_dev && before_->own().inode == own.st_ino;
  if (!isSame || walk_.visits->goesEverywhere(own.st_dev, path_) ||
      mayHaveAliases(directory, job)) {
    before_.reset();
    if (walk_.visits->claimAll(job)) runWhole(directory, job.directory);
    return;
  }
  goesEverywhere_ = false;
  remembers_ = walk_.after != nullptr;
  if (remembers_) part_.begin(path_, own);
  flags_ = 0;
  for (const std::string& name : job.names) addChanged(directory, name);
  if (begun_ || !unchanged(before_->own(), own)) endDirectory(directory);
  if (remembers_) walk_.after->add(part_);
}

// The kernel tells of an entry by the name that it was reached by.
bool Walker::mayHaveAliases(int directory, const Job& job) const {
  constexpr size_t kOthersToTry = 16;
  std::vector<std::string> names = job.names;
  const std::vector<std::string> others = before_->names(kOthersToTry);
  names.insert(names.end(), others.begin(), others.end());
  return mayFoldCase(directory, names);
}

void Walker::addChanged(int directory, const std::string& name) {
  struct stat status {};
  const bool isThere = ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!isThere && errno != ENOENT) {
    fail(name, because("cannot look at it"));
    return keep(name, knownBefore(name));
  }
  if (isThere && !walk_.rules.excludes(pathOf(name), S_ISDIR(status.st_mode)))
    return addEntry(directory, name, IFTODT(status.st_mode), status.st_ino, false);
  if (const std::optional<Known> before = knownBefore(name)) remove(name, *before);
}

// What was there when the manifest was made.
void Walker::removeGone() {
  for (const auto& [name, before] : before_->rest()) remove(name, before);
}

void Walker::remove(const std::string& name, const Known& before) {
  if (walk_.rules.excludes(pathOf(name), S_ISDIR(before.mode))) return;
  putName(Record::kRemove, name);
  noteLost(name, before);
}

// What was sent of them is not to be sent again, and they are not gone.
void Walker::passOverSeen() {
  seen_.clear();
  if (walk_.visits != nullptr) seen_ = walk_.visits->seen(path_);
  for (const std::string& name : seen_) knownBefore(name);
}

// Further names of what is no longer here may be in directories where nothing happened,
// though the file was changed by this one.
void Walker::noteLost(const std::string& name, const Known& before) {
  if (walk_.visits == nullptr) return;
  if (S_ISDIR(before.mode))
    walk_.visits->noteGone(pathOf(name));
  else if (before.linked)
    walk_.visits->noteLinked({before.device, before.inode});
}

void Walker::noteReplaced(const std::string& name, unsigned type, ino_t inode) {
  const std::optional<Known> before = knownBefore(name);
  if (!before || (before->inode == inode && IFTODT(before->mode) == type)) return;
  // Another directory is gone through, which tells what of the old one is lost.
  if (!S_ISDIR(before->mode) || type != DT_DIR) noteLost(name, *before);
}

// As it was asked for, removeGone() passes it over.
void Walker::noteVanished(const std::string& name) {
  walk_.problems.addVanished(pathOf(name));
  if (const std::optional<Known> before = knownBefore(name)) noteLost(name, *before);
  if (before_) putName(Record::kRemove, name);
}

// Since its directory was read. Another pass has to see what it is now.
void Walker::noteReplacedMeanwhile(const std::string& name) {
  walk_.problems.addVanished(pathOf(name));
  walk_.incomplete.add(path_);
  keep(name, knownBefore(name));
}

// What is there stays, and is asked for again by the next pass, which removes it if it is
// gone by then.
void Walker::keep(const std::string& name, const std::optional<Known>& before) {
  Known known = before.value_or(Known{});
  if (!before) known.mode = S_IFREG;
  known.fresh = true;
  remember(name, known);
  putName(Record::kKeep, name);
}

void Walker::fail(const std::string& name, const std::string& what) {
  walk_.problems.add(name.empty() ? path_ : pathOf(name), what);
  walk_.incomplete.add(path_);
}

void Walker::runWanted(int directory, const Job& job) {
  // The manifest has, so far, what they were when they were listed; unless it could not be.
  remembers_ = walk_.after != nullptr && !walk_.unlisted;
  if (!remembers_) walk_.distrusted = true;
  struct stat own {};
  ::fstat(directory, &own);
  if (remembers_) part_.begin(path_, own);
  flags_ = 0;
  begin();
  for (const std::string& name : job.names) {
    struct stat status {};
    if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      walk_.problems.addVanished(pathOf(name));
      continue;
    }
    // Others may have been links to what there was.
    if (walk_.before != nullptr && status.st_nlink > 1) walk_.distrusted = true;
    if (S_ISREG(status.st_mode))
      addFile(directory, name);
    else if (!S_ISDIR(status.st_mode))
      addOther(directory, name);
  }
  endDirectory(directory);
  if (remembers_) walk_.after->add(part_);
}

// Where only differences are sent, a directory is begun by the first of them.
void Walker::begin() {
  if (begun_) return;
  begun_ = true;
  stream_.makeRoom(path_.size() + 16);
  stream_.begin(Record::kDirBegin);
  putText(stream_.buffer(), path_);
  putNumber(stream_.buffer(), flags_);
}

void Walker::endDirectory(int directory) {
  begin();
  struct stat status {};
  ::fstat(directory, &status);
  Entry entry = entryOf({}, status);
  takeAttributes(AttributePlace(directory), path_, entry);
  stream_.makeRoom(recordSize(entry));
  stream_.begin(Record::kDirEnd);
  putEntry(stream_.buffer(), entry);
}

void Walker::putName(Record record, const std::string& name) {
  begin();
  stream_.makeRoom(name.size() + 16);
  stream_.begin(record);
  putText(stream_.buffer(), name);
}

std::optional<Known> Walker::knownBefore(const std::string& name) {
  return before_ ? before_->find(name) : std::nullopt;
}

void Walker::remember(const std::string& name, const Known& known) {
  if (!remembers_) return;
  part_.add(name, known);
  if (!part_.large()) return;
  walk_.after->add(part_);
  part_.beginAgain();
}

// Its times tell another directory from one that was here, though both have the same
// number, as numbers are used again.
void Walker::addSubdirectory(int directory, const std::string& name) {
  const std::optional<Known> before = knownBefore(name);
  if (!before || !S_ISDIR(before->mode)) putName(Record::kDir, name);
  Known known;
  known.mode = S_IFDIR;
  struct stat status {};
  const bool isThere = ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (isThere && S_ISDIR(status.st_mode)) known = knownOf(status);
  remember(name, known);
  if (goesEverywhere_ || !isThere || !before || !unchanged(*before, status))
    walk_.queue.add({pathOf(name), {}});
}

void Walker::takeAttributes(const AttributePlace& place, const std::string& path, Entry& entry) {
  std::string problem;
  if (readAttributes(place, walk_.kinds, entry.attributes, problem)) return;
  walk_.problems.add(path, problem);
  walk_.incomplete.add(path_);
}

bool Walker::isUnchanged(const std::optional<Known>& before, const struct stat& status) const {
  return before && unchanged(*before, status) &&
         !walk_.before->suspects(status.st_dev, status.st_ino);
}

// Only the first name of a file carries it over; the other end keeps what has
// this name until the links are made.
bool Walker::isFurtherName(const struct stat& status, const std::string& name,
                           const std::optional<Known>& before) {
  if (status.st_nlink < 2) return false;
  const std::string own = pathOf(name);
  const auto first = walk_.links.meet(status.st_dev, status.st_ino, own);
  if (!first) return false;
  if (!first->changed && isUnchanged(before, status)) {
    remember(name, *before);
    return true;
  }
  putName(Record::kKeep, name);
  walk_.links.addLink(own, first->path);
  if (walk_.visits != nullptr) walk_.visits->noteLinked({status.st_dev, status.st_ino});
  remember(name, knownOf(status));
  return true;
}

// The other end has it as it is.
bool Walker::passOver(const struct stat& status, const std::string& name,
                      const std::optional<Known>& before) {
  if (!isUnchanged(before, status)) {
    if (walk_.visits != nullptr && status.st_nlink > 1)
      walk_.visits->noteLinked({status.st_dev, status.st_ino});
    return false;
  }
  if (status.st_nlink > 1) walk_.links.setUnchanged(status.st_dev, status.st_ino);
  if (S_ISREG(status.st_mode)) walk_.bytesDone += static_cast<std::uint64_t>(status.st_size);
  remember(name, *before);
  return true;
}

void Walker::addFile(int directory, const std::string& name) {
  const std::optional<Known> before = knownBefore(name);
  struct stat status {};
  if (before && ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISREG(status.st_mode) && isUnchanged(before, status)) {
    walk_.bytesKnown += static_cast<std::uint64_t>(status.st_size);
    if (!isFurtherName(status, name, before)) passOver(status, name, before);
    return;
  }
  const Fd file = openEntry(directory, name, O_RDONLY);
  if (!file) {
    const int error = errno;
    if (error == ENOENT) return noteVanished(name);
    if (error == ELOOP) return addOther(directory, name);
    fail(name, because("cannot open it"));
    return keep(name, before);
  }
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
    return addOther(directory, name);
  walk_.bytesKnown += static_cast<std::uint64_t>(status.st_size);
  if (!isFurtherName(status, name, before)) sendFile(file.get(), status, name, before);
}

void Walker::sendFile(int file, const struct stat& status, const std::string& name,
                      const std::optional<Known>& before) {
  if (walk_.visits != nullptr && status.st_nlink > 1)
    walk_.visits->noteLinked({status.st_dev, status.st_ino});
  Known known = knownOf(status);  // before it is read: a change from here on shows
  Entry entry = entryOf(name, status);
  takeAttributes(AttributePlace(file), pathOf(name), entry);
  begin();
  const bool sameFile = before && S_ISREG(before->mode) && before->device == status.st_dev &&
                        before->inode == status.st_ino;
  const bool patches = sameFile && !before->blocks.empty() && entry.size >= kLargeFile;
  Sent sent;
  if (patches) {
    sent = contents_.sendPatch(file, status, entry, before->blocks);
  } else if (sameFile && before->digest && sameApartFromChangeTime(*before, status) &&
             contents_.digest(file, status) == before->digest) {
    stream_.makeRoom(recordSize(entry));
    stream_.begin(Record::kUpdate);
    putEntry(stream_.buffer(), entry);
    sent.good = true;
    sent.digest = before->digest;
  } else {
    sent = contents_.send(file, status, entry);
  }
  if (!sent.good) {
    fail(name, because("cannot read it"));
    if (status.st_nlink > 1) walk_.distrusted = true;  // others may be taken for the same file
    return keep(name, patches ? std::nullopt : before);
  }
  known.digest = sent.digest;
  known.blocks = std::move(sent.blocks);
  remember(name, known);
}

bool Walker::readLink(int directory, const std::string& name, Entry& entry) {
  target_.resize(kLongestTarget + 1);
  const ssize_t size = ::readlinkat(directory, name.c_str(), target_.data(), target_.size());
  if (size <= 0 || static_cast<size_t>(size) > kLongestTarget) {
    if (size < 0 && errno == ENOENT) {
      noteVanished(name);
    } else if (size < 0 && errno == EINVAL) {
      noteReplacedMeanwhile(name);
    } else {
      fail(name, because("cannot read the symbolic link"));
      keep(name, knownBefore(name));
    }
    return false;
  }
  entry.target = std::string_view(target_).substr(0, static_cast<size_t>(size));
  return true;
}

void Walker::addOther(int directory, const std::string& name) {
  const std::optional<Known> before = knownBefore(name);
  struct stat status {};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return noteVanished(name);
    fail(name, because("cannot look at it"));
    return keep(name, before);
  }
  if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) return noteReplacedMeanwhile(name);
  if (isFurtherName(status, name, before) || passOver(status, name, before)) return;
  const Known known = knownOf(status);
  Entry entry = entryOf(name, status);
  if (S_ISLNK(status.st_mode) && !readLink(directory, name, entry)) return;
  takeAttributes(AttributePlace(directory, name), pathOf(name), entry);
  begin();
  stream_.makeRoom(recordSize(entry));
  stream_.begin(Record::kOther);
  putEntry(stream_.buffer(), entry);
  remember(name, known);
}

// For the comparing pass: contents are sent when they are asked for.
void Walker::listFile(int directory, const std::string& name) {
  struct stat status {};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode))
    return addOther(directory, name);
  walk_.bytesKnown += static_cast<std::uint64_t>(status.st_size);
  if (isFurtherName(status, name, std::nullopt)) return;
  const Known known = knownOf(status);
  Entry entry = entryOf(name, status);
  takeAttributes(AttributePlace(directory, name), pathOf(name), entry);
  stream_.makeRoom(recordSize(entry));
  stream_.begin(Record::kListed);
  putEntry(stream_.buffer(), entry);
  putNumber(stream_.buffer(), status.st_nlink > 1 ? kHasLinks : 0);
  remember(name, known);
}

}  // namespace engine
