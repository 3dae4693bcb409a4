#include "share/engine/walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

Walker::Walker(Walk& walk, RecordStream& stream)
    : walk_(walk), stream_(stream), contents_(stream, walk.bytesDone) {}

void Walker::run(const Job& job) {
  const Descriptor directory = walk_.tree.openDirectory(job.directory);
  if (!directory.open()) {
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)
      walk_.problems.addVanished(job.directory);
    else
      walk_.problems.add(job.directory, because("cannot open the directory"));
    return;
  }
  if (job.names.empty())
    runWhole(directory.get(), job.directory);
  else
    runSome(directory.get(), job);
}

void Walker::runWhole(int directory, const std::string& path) {
  const bool complete = listing_.read(directory);
  if (!complete) walk_.problems.add(path, because("cannot read the directory"));
  listing_.sortByInode();
  beginDirectory(path, complete ? kComplete : 0);
  for (const Listing::Item& item : listing_.items()) {
    const std::string name(listing_.name(item));
    const unsigned type = typeOf(directory, name, item.type);
    if (walk_.rules.excludes(joinPath(path, name), type == DT_DIR)) continue;
    if (type == DT_DIR)
      addSubdirectory(path, name);
    else if (walk_.way == Way::Comparing)
      listItem(directory, path, name, type);
    else
      addItem(directory, path, name, type);
  }
  endDirectory(directory, path);
}

void Walker::runSome(int directory, const Job& job) {
  beginDirectory(job.directory, 0);
  for (const std::string& name : job.names) {
    struct stat status {};
    if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      walk_.problems.addVanished(joinPath(job.directory, name));
    else if (!S_ISDIR(status.st_mode))
      addItem(directory, job.directory, name, IFTODT(status.st_mode));
  }
  endDirectory(directory, job.directory);
}

void Walker::beginDirectory(const std::string& path, unsigned flags) {
  stream_.makeRoom(path.size() + 16);
  stream_.begin(Record::DirBegin);
  putText(stream_.buffer(), path);
  putNumber(stream_.buffer(), flags);
}

void Walker::endDirectory(int directory, const std::string& path) {
  struct stat status {};
  ::fstat(directory, &status);
  Entry entry = entryOf({}, status);
  takeAttributes(AttributePlace(directory), path, entry);
  stream_.makeRoom(recordSize(entry));
  stream_.begin(Record::DirEnd);
  putEntry(stream_.buffer(), entry);
}

void Walker::putName(Record record, const std::string& name) {
  stream_.makeRoom(name.size() + 16);
  stream_.begin(record);
  putText(stream_.buffer(), name);
}

void Walker::addSubdirectory(const std::string& path, const std::string& name) {
  putName(Record::Dir, name);
  walk_.queue.add({joinPath(path, name), {}});
}

void Walker::takeAttributes(const AttributePlace& place, const std::string& path, Entry& entry) {
  std::string problem;
  if (!readAttributes(place, walk_.kinds, entry.attributes, problem))
    walk_.problems.add(path, problem);
}

// Only the first name of a file carries it over; the other end keeps what has
// this name until the links are made.
bool Walker::isFurtherName(const struct stat& status, const std::string& path,
                           const std::string& name) {
  if (status.st_nlink < 2) return false;
  const std::string own = joinPath(path, name);
  const auto first = walk_.links.meet(status.st_dev, status.st_ino, own);
  if (!first) return false;
  putName(Record::Keep, name);
  walk_.links.addLink(own, first->path);
  return true;
}

void Walker::addItem(int directory, const std::string& path, const std::string& name,
                     unsigned type) {
  if (type == DT_REG)
    addFile(directory, path, name);
  else
    addOther(directory, path, name);
}

void Walker::addFile(int directory, const std::string& path, const std::string& name) {
  const Descriptor file = openEntry(directory, name, O_RDONLY);
  struct stat status {};
  if (!file.open()) {
    const int error = errno;
    if (error == ENOENT) return walk_.problems.addVanished(joinPath(path, name));
    if (error == ELOOP) return addOther(directory, path, name);
    walk_.problems.add(joinPath(path, name), because("cannot open it"));
    return putName(Record::Keep, name);
  }
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
    return addOther(directory, path, name);
  walk_.bytesKnown += static_cast<std::uint64_t>(status.st_size);
  if (isFurtherName(status, path, name)) return;

  Entry entry = entryOf(name, status);
  takeAttributes(AttributePlace(file.get()), joinPath(path, name), entry);
  const Sent sent = contents_.send(file.get(), status, entry);
  if (!sent.good) {
    walk_.problems.add(joinPath(path, name), because("cannot read it"));
    putName(Record::Keep, name);
  }
}

bool Walker::readLink(int directory, const std::string& path, const std::string& name,
                      Entry& entry) {
  target_.resize(kLongestTarget + 1);
  const ssize_t size = ::readlinkat(directory, name.c_str(), target_.data(), target_.size());
  if (size <= 0 || static_cast<size_t>(size) > kLongestTarget) {
    if (size < 0 && (errno == ENOENT || errno == EINVAL))
      walk_.problems.addVanished(joinPath(path, name));
    else
      walk_.problems.add(joinPath(path, name), because("cannot read the symbolic link"));
    return false;
  }
  entry.target = std::string_view(target_).substr(0, static_cast<size_t>(size));
  return true;
}

void Walker::addOther(int directory, const std::string& path, const std::string& name) {
  struct stat status {};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return walk_.problems.addVanished(joinPath(path, name));
    walk_.problems.add(joinPath(path, name), because("cannot look at it"));
    return putName(Record::Keep, name);
  }
  // Became something else since its directory was read: the next pass has it.
  if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))
    return walk_.problems.addVanished(joinPath(path, name));
  if (isFurtherName(status, path, name)) return;
  Entry entry = entryOf(name, status);
  if (S_ISLNK(status.st_mode) && !readLink(directory, path, name, entry)) return;
  takeAttributes(AttributePlace(directory, name), joinPath(path, name), entry);
  stream_.makeRoom(recordSize(entry));
  stream_.begin(Record::Other);
  putEntry(stream_.buffer(), entry);
}

// For the comparing pass: contents are sent when they are asked for.
void Walker::listItem(int directory, const std::string& path, const std::string& name,
                      unsigned type) {
  if (type != DT_REG) return addOther(directory, path, name);
  struct stat status {};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode))
    return addOther(directory, path, name);
  walk_.bytesKnown += static_cast<std::uint64_t>(status.st_size);
  if (isFurtherName(status, path, name)) return;
  Entry entry = entryOf(name, status);
  takeAttributes(AttributePlace(directory, name), joinPath(path, name), entry);
  stream_.makeRoom(recordSize(entry));
  stream_.begin(Record::Listed);
  putEntry(stream_.buffer(), entry);
  putNumber(stream_.buffer(), status.st_nlink > 1 ? kHasLinks : 0);
}

}  // namespace engine
