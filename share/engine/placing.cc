#include "share/engine/placing.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "share/engine/removal.h"
#include "share/engine/temporary_name.h"

namespace engine {

namespace {

constexpr mode_t kPermissions = 07777;
constexpr mode_t kSpecialBits = 07000;
constexpr mode_t kPrivate = 0600;
constexpr mode_t kPrivateDirectory = 0700;
constexpr unsigned kLanesAtMost = 4;

struct Times {
  explicit Times(const Entry& entry)
      : both{{0, UTIME_OMIT}, {static_cast<time_t>(entry.seconds), entry.nanoseconds}} {}
  timespec both[2];
};

}  // namespace

void Placer::problem(std::string_view name, const std::string& what) {
  problems_.add(joinPath(path_, name), what);
}

void Placer::failed(std::string_view name, const char* what) {
  problems_.addAtDestination(joinPath(path_, name), what);
}

void Placer::enter(int directory, const std::string& path) {
  directory_ = directory;
  path_ = path;
  newOwner_.reset();
  ::fremovexattr(directory, "system.posix_acl_default");  // there is none, mostly
}

bool Placer::remove(const std::string& name) {
  return removeEntry(directory_, name, joinPath(path_, name), rules_, problems_);
}

Fd Placer::createNamed(const std::string& name, const Entry& entry) {
  // Where the file will have the right owner anyway, it gets its mode at once.
  early_ = newOwner_ && newOwner_->uid == entry.uid && newOwner_->gid == entry.gid;
  const mode_t mode = early_ ? entry.mode & ~kSpecialBits & kPermissions : kPrivate;
  Fd file;
  for (int attempt = 0; attempt < 2 && !file; ++attempt) {
    file = openEntry(directory_, name, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file && (errno != EEXIST || attempt > 0 || !remove(name))) break;
  }
  if (!file) {
    failed(entry.name, "cannot create the file");
    return file;
  }
  struct stat status {};
  if (!newOwner_ && ::fstat(file.get(), &status) == 0)
    newOwner_ = Owner{status.st_uid, status.st_gid};
  return file;
}

Fd Placer::create(const Entry& entry) { return createNamed(std::string(entry.name), entry); }

// Not more than its share of what is free, as other lanes have files under way.
bool Placer::hasRoomBeside(const Entry& entry) const {
  const std::string name(entry.name);
  struct stat status {};
  struct statvfs space {};
  return ::fstatat(directory_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         !S_ISDIR(status.st_mode) && ::fstatvfs(directory_, &space) == 0 &&
         entry.size <= space.f_bavail * space.f_frsize / kLanesAtMost;
}

Fd Placer::createBeside(const Entry& entry, std::string& name) {
  name = hasRoomBeside(entry) ? temporaryName() : std::string(entry.name);
  return createNamed(name, entry);
}

void Placer::takePlace(const Entry& entry, const std::string& name) {
  const std::string wanted(entry.name);
  if (name == wanted || ::renameat(directory_, name.c_str(), directory_, wanted.c_str()) == 0)
    return;
  const int error = errno;
  ::unlinkat(directory_, name.c_str(), 0);
  errno = error;
  failed(wanted, "cannot put it in its place");
}

void Placer::tellApart(const Entry& entry) const {
  const std::string name(entry.name);
  struct stat status {};
  if (::fstatat(directory_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode) || status.st_mtim.tv_sec != entry.seconds)
    return;
  const timespec times[] = {{0, UTIME_OMIT}, {entry.seconds == 0 ? 1 : 0, 0}};
  ::utimensat(directory_, name.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

Fd Placer::openExisting(const std::string& name) const {
  Fd file(::openat(directory_, name.c_str(),
                   O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (file && (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) file.reset();
  return file;
}

void Placer::finish(int file, const Entry& entry, bool isNew) {
  const bool hasMode = isNew && early_;
  const bool hasOwner =
      hasMode || (isNew && newOwner_ && newOwner_->uid == entry.uid && newOwner_->gid == entry.gid);
  if (!hasOwner && ::fchown(file, entry.uid, entry.gid) != 0)
    failed(entry.name, "cannot set its owner");
  if ((!hasMode || (entry.mode & kSpecialBits) != 0) &&
      ::fchmod(file, entry.mode & kPermissions) != 0)
    failed(entry.name, "cannot set its mode");
  std::string text;
  if ((!isNew || !entry.attributes.empty()) &&
      !writeAttributes(AttributePlace(file), kinds_, entry.attributes, !isNew, text))
    problem(entry.name, text);
  if (::futimens(file, Times(entry).both) != 0) failed(entry.name, "cannot set its time");
}

bool Placer::sameKind(const std::string& name, const struct stat& status,
                      const Entry& entry) const {
  if ((status.st_mode & S_IFMT) != (entry.mode & S_IFMT)) return false;
  if (S_ISCHR(entry.mode) || S_ISBLK(entry.mode))
    return status.st_rdev == makedev(entry.major, entry.minor);
  if (!S_ISLNK(entry.mode)) return true;
  char target[kLongestTarget + 1];
  const ssize_t size = ::readlinkat(directory_, name.c_str(), target, sizeof target);
  return size >= 0 && std::string_view(target, static_cast<size_t>(size)) == entry.target;
}

bool Placer::make(const std::string& name, const Entry& entry) {
  if (S_ISLNK(entry.mode))
    return ::symlinkat(std::string(entry.target).c_str(), directory_, name.c_str()) == 0;
  return ::mknodat(directory_, name.c_str(), (entry.mode & S_IFMT) | kPrivate,
                   makedev(entry.major, entry.minor)) == 0;
}

void Placer::placeOther(const Entry& entry) {
  const std::string name(entry.name);
  bool there = make(name, entry);
  if (!there && errno == EEXIST) {
    struct stat status {};
    if (::fstatat(directory_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_nlink < 2 && sameKind(name, status, entry))
      there = true;
    else
      there = remove(name) && make(name, entry);
  }
  if (there)
    setByName(name, entry);
  else
    failed(name, "cannot create it");
}

// No call in here follows a symbolic link that another thread may have put there.
void Placer::setByName(const std::string& name, const Entry& entry) {
  if (::fchownat(directory_, name.c_str(), entry.uid, entry.gid, AT_SYMLINK_NOFOLLOW) != 0)
    failed(name, "cannot set its owner");
  if (!S_ISLNK(entry.mode) &&
      ::fchmodat(directory_, name.c_str(), entry.mode & kPermissions, AT_SYMLINK_NOFOLLOW) != 0)
    failed(name, "cannot set its mode");
  std::string text;
  if (!writeAttributes(AttributePlace(directory_, name), kinds_, entry.attributes, true, text))
    problem(name, text);
  if (::utimensat(directory_, name.c_str(), Times(entry).both, AT_SYMLINK_NOFOLLOW) != 0)
    failed(name, "cannot set its time");
}

bool Placer::update(const Entry& entry) {
  const std::string name(entry.name);
  struct stat status {};
  if (!S_ISREG(entry.mode)) {
    if (::fstatat(directory_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !sameKind(name, status, entry))
      return false;
    setByName(name, entry);
    return true;
  }
  const Fd file = openEntry(directory_, name, O_RDONLY);
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  finish(file.get(), entry, false);
  return true;
}

void Placer::placeDirectory(const std::string& name) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (::mkdirat(directory_, name.c_str(), kPrivateDirectory) == 0) return;
    struct stat status {};
    if (errno != EEXIST) break;
    if (::fstatat(directory_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(status.st_mode))
      return;
    if (!remove(name)) return;
  }
  failed(name, "cannot create the directory");
}

void Placer::finishDirectory(const Entry& entry) {
  if (::fchown(directory_, entry.uid, entry.gid) != 0) failed({}, "cannot set its owner");
  if (::fchmod(directory_, entry.mode & kPermissions) != 0) failed({}, "cannot set its mode");
  std::string text;
  if (!writeAttributes(AttributePlace(directory_), kinds_, entry.attributes, true, text))
    problem({}, text);
  if (::futimens(directory_, Times(entry).both) != 0) failed({}, "cannot set its time");
}

}  // namespace engine
