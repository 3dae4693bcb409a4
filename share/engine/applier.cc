#include "share/engine/applier.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "share/engine/listing.h"
#include "share/engine/removal.h"
#include "share/engine/temporary_name.h"

namespace engine {

namespace {

constexpr mode_t kPermissions = 07777;
constexpr std::uint64_t kMostBytes = std::numeric_limits<std::int64_t>::max();

std::uint64_t hashOf(std::string_view name) { return digestOf(name).low; }

}  // namespace

Applier::Applier(Copy& copy) : copy_(copy), placer_(copy.kinds, copy.rules, copy.problems) {}

void Applier::apply(std::string_view records) {
  Decoder from(records);
  while (!from.atEnd()) {
    {
      const std::scoped_lock lock(mutex_);
      if (abandoned_) return;
      applyOne(from);
    }
    // Not under the lock: the channel may be waited for, and abandon() must not wait.
    if (inDirectory_ || wanted_.empty()) continue;
    copy_.want(path_, wanted_);
    wanted_.clear();
  }
}

void Applier::abandon() {
  const std::scoped_lock lock(mutex_);
  if (!abandoned_ && inFile_ && file_) removeUnfinished();
  abandoned_ = true;
}

void Applier::removeUnfinished() {
  if (!unfinished_.empty()) ::unlinkat(directory_.get(), unfinished_.c_str(), 0);
}

void Applier::needDirectory() const {
  if (!inDirectory_) throw ProtocolError("a record is outside of a directory");
  if (inFile_) throw ProtocolError("a record is inside a file");
}

void Applier::name(std::string_view name) {
  if (cleaning_) named_.push_back(hashOf(name));
}

void Applier::applyOne(Decoder& from) {
  const unsigned kind = from.byte();
  switch (static_cast<Record>(kind)) {
    case Record::kDirBegin:
      return beginDirectory(from);
    case Record::kData:
      return takeData(from);
    case Record::kFileEnd:
      return endFile(from);
    case Record::kLink:
      return link(from);
    default:
      break;
  }
  needDirectory();
  switch (static_cast<Record>(kind)) {
    case Record::kDirEnd:
      return endDirectory(from);
    case Record::kWhole:
      return takeWhole(from);
    case Record::kFile:
      return beginFile(from, false);
    case Record::kPatch:
      return beginFile(from, true);
    case Record::kListed:
      return compare(from);
    case Record::kDir: {
      const std::string subdirectory(takeName(from));
      name(subdirectory);
      if (directory_) placer_.placeDirectory(subdirectory);
      return;
    }
    case Record::kOther:
      takeEntry(from, scratch_);
      if (S_ISREG(scratch_.mode) || S_ISDIR(scratch_.mode))
        throw ProtocolError("an entry is of the wrong type");
      name(scratch_.name);
      if (directory_) placer_.placeOther(scratch_);
      return;
    case Record::kUpdate:
      takeEntry(from, scratch_);
      if (S_ISDIR(scratch_.mode)) throw ProtocolError("an entry is of the wrong type");
      name(scratch_.name);
      if (directory_ && !placer_.update(scratch_)) wanted_.emplace_back(scratch_.name);
      return;
    case Record::kKeep:
      name(takeName(from));
      return;
    case Record::kRemove: {
      const std::string gone(takeName(from));
      if (directory_) placer_.remove(gone);
      return;
    }
    default:
      throw ProtocolError("unknown kind of record: " + std::to_string(kind));
  }
}

void Applier::beginDirectory(Decoder& from) {
  if (inDirectory_) throw ProtocolError("a directory starts inside another");
  path_ = takePath(from);
  const std::uint64_t flags = from.number(kComplete, "flags");
  inDirectory_ = true;
  // Into an empty place nothing but the copy itself has put anything.
  cleaning_ = (flags & kComplete) != 0 && (!copy_.wasEmpty || path_.empty());
  named_.clear();
  wanted_.clear();
  directory_ = copy_.tree.ensureDirectory(path_);
  if (directory_)
    placer_.enter(directory_.get(), path_);
  else
    copy_.problems.addAtDestination(path_, "cannot create or open the directory");
}

void Applier::endDirectory(Decoder& from) {
  takeEntry(from, scratch_);
  if (!S_ISDIR(scratch_.mode)) throw ProtocolError("an entry is of the wrong type");
  if (directory_) {
    if (cleaning_) removeUnnamed();
    placer_.finishDirectory(scratch_);
  }
  directory_.reset();
  inDirectory_ = false;
}

void Applier::removeUnnamed() {
  std::sort(named_.begin(), named_.end());
  Listing listing;
  if (!listing.read(directory_.get())) {
    copy_.problems.addAtDestination(path_, "cannot read the directory");
    return;
  }
  for (const Listing::Item& item : listing.items()) {
    const std::string there(listing.name(item));
    if (std::binary_search(named_.begin(), named_.end(), hashOf(there))) continue;
    struct stat status {};
    if (::fstatat(directory_.get(), there.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (isTemporaryName(there) ||
        !copy_.rules.excludes(joinPath(path_, there), S_ISDIR(status.st_mode)))
      placer_.remove(there);
  }
}

// A damaged file is asked for once more; then it is a problem.
void Applier::damaged(const Entry& entry) {
  const std::string path = joinPath(path_, entry.name);
  bool again = false;
  {
    const std::scoped_lock lock(copy_.mutex);
    again = copy_.askedAgain.insert(path).second;
  }
  if (again) {
    wanted_.emplace_back(entry.name);
  } else {
    copy_.problems.add(path, "was damaged in transit twice");
    placer_.tellApart(entry);
  }
}

bool Applier::write(int file, std::string_view bytes, std::uint64_t offset,
                    std::string_view fileName) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      const int error = errno;
      removeUnfinished();
      errno = error;
      copy_.problems.addAtDestination(joinPath(path_, fileName), "cannot write it");
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
  return true;
}

void Applier::takeWhole(Decoder& from) {
  takeEntry(from, scratch_);
  if (!S_ISREG(scratch_.mode)) throw ProtocolError("an entry is of the wrong type");
  const Digest digest = takeDigest(from);
  const std::uint32_t length = from.fixed32();
  const std::string_view contents = from.bytes(length, "file");
  name(scratch_.name);
  if (!directory_) return;
  if (digestOf(contents) != digest) return damaged(scratch_);
  const Fd file = placer_.create(scratch_);
  unfinished_ = scratch_.name;
  if (!file) return;
  if (write(file.get(), contents, 0, scratch_.name)) placer_.finish(file.get(), scratch_, true);
}

void Applier::beginFile(Decoder& from, bool patch) {
  takeEntry(from, fileEntry_);
  if (!S_ISREG(fileEntry_.mode)) throw ProtocolError("an entry is of the wrong type");
  fileName_ = fileEntry_.name;
  fileEntry_.name = fileName_;
  name(fileName_);
  inFile_ = true;
  patching_ = patch;
  fileEnd_ = 0;
  digester_.begin();
  fileFailed_ = !directory_;
  if (fileFailed_) return;
  unfinished_.clear();
  file_ = patch ? placer_.openExisting(fileName_) : placer_.createBeside(fileEntry_, unfinished_);
  fileFailed_ = !file_;
  if (fileFailed_ && patch) wanted_.push_back(fileName_);
}

void Applier::takeData(Decoder& from) {
  if (!inFile_) throw ProtocolError("data are outside of a file");
  const std::uint64_t offset = from.number(kMostBytes, "offset");
  const std::uint32_t length = from.fixed32();
  const std::string_view bytes = from.bytes(length, "data");
  if (offset < fileEnd_ || offset > fileEntry_.size || length > fileEntry_.size - offset)
    throw ProtocolError("data are beyond the end of their file, or out of order");
  fileEnd_ = offset + length;
  if (fileFailed_) return;
  digester_.add(offset, bytes);
  if (!write(file_.get(), bytes, offset, fileName_)) fileFailed_ = true;
}

void Applier::endFile(Decoder& from) {
  if (!inFile_) throw ProtocolError("a file ends that was not started");
  const bool good = from.number(1, "flag") == 1;
  const std::uint64_t size = from.number(fileEntry_.size, "size");
  const Digest digest = takeDigest(from);
  inFile_ = false;
  const Fd file = std::move(file_);
  if (size < fileEnd_) throw ProtocolError("a file is shorter than its data");
  if (!file) return;
  const bool intact = digester_.result() == digest;
  bool whole = good && !fileFailed_ && intact;
  if (whole && (patching_ || size != fileEnd_) &&
      ::ftruncate(file.get(), static_cast<off_t>(size)) != 0) {
    copy_.problems.addAtDestination(joinPath(path_, fileName_), "cannot set its size");
    whole = false;
  }
  if (whole) {
    placer_.finish(file.get(), fileEntry_, !patching_);
    if (!patching_) placer_.takePlace(fileEntry_, unfinished_);
  } else {
    removeUnfinished();
    placer_.tellApart(fileEntry_);
  }
  if (good && !fileFailed_ && !intact) damaged(fileEntry_);
}

bool Applier::agrees(const Entry& entry, const struct stat& status, bool hasLinks) {
  if (!S_ISREG(status.st_mode) || static_cast<std::uint64_t>(status.st_size) != entry.size ||
      status.st_mtim.tv_sec != entry.seconds)
    return false;
  if (copy_.keepsNanoseconds && status.st_mtim.tv_nsec != static_cast<long>(entry.nanoseconds))
    return false;
  if (status.st_nlink < 2) return true;
  // It has more names here: they must be those of one file there.
  const std::scoped_lock lock(copy_.mutex);
  return hasLinks && copy_.linkedOnes.insert({status.st_dev, status.st_ino}).second;
}

void Applier::updateWhatDiffers(const Entry& entry, const struct stat& status) {
  bool same = status.st_uid == entry.uid && status.st_gid == entry.gid &&
              (status.st_mode & kPermissions) == (entry.mode & kPermissions);
  Attributes there;
  std::string problem;
  const AttributePlace place(directory_.get(), entry.name);
  same = same && readAttributes(place, copy_.kinds, there, problem) && there == entry.attributes;
  if (!same) placer_.update(entry);
}

void Applier::compare(Decoder& from) {
  takeEntry(from, scratch_);
  if (!S_ISREG(scratch_.mode)) throw ProtocolError("an entry is of the wrong type");
  const bool hasLinks = (from.number(kHasLinks, "flags") & kHasLinks) != 0;
  name(scratch_.name);
  if (!directory_) return;
  const std::string there(scratch_.name);
  struct stat status {};
  if (::fstatat(directory_.get(), there.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      agrees(scratch_, status, hasLinks))
    updateWhatDiffers(scratch_, status);
  else
    wanted_.push_back(there);
}

// The names of a directory change, but its times are final already.
void Applier::link(Decoder& from) {
  if (inDirectory_) throw ProtocolError("a link is inside a directory");
  const std::string path(takePath(from));
  const std::string first(takePath(from));
  if (path.empty() || first.empty()) throw ProtocolError("a link has no name");
  const auto parentOf = [](const std::string& whole) {
    const size_t slash = whole.rfind('/');
    return slash == std::string::npos ? std::string() : whole.substr(0, slash);
  };
  const std::string linkName = path.substr(path.rfind('/') + 1);
  const std::string firstName = first.substr(first.rfind('/') + 1);
  const Fd directory = copy_.tree.openDirectory(parentOf(path));
  const Fd firstDirectory = copy_.tree.openDirectory(parentOf(first));
  struct stat parent {};
  struct stat target {};
  struct stat there {};
  if (!directory || !firstDirectory || ::fstat(directory.get(), &parent) != 0 ||
      ::fstatat(firstDirectory.get(), firstName.c_str(), &target, AT_SYMLINK_NOFOLLOW) != 0) {
    copy_.problems.addAtDestination(path, "cannot create the hard link");
    return;
  }
  const bool exists =
      ::fstatat(directory.get(), linkName.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0;
  if (exists && there.st_dev == target.st_dev && there.st_ino == target.st_ino) return;
  if (exists && !removeEntry(directory.get(), linkName, path, copy_.rules, copy_.problems)) return;
  if (::linkat(firstDirectory.get(), firstName.c_str(), directory.get(), linkName.c_str(), 0) != 0)
    copy_.problems.addAtDestination(path, "cannot create the hard link");
  const timespec times[2] = {{0, UTIME_OMIT}, parent.st_mtim};
  ::futimens(directory.get(), times);
}

}  // namespace engine
