#include "share/engine/manifest.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "share/engine/hello.h"

namespace engine {

namespace {

// The file: this word, the parts one after the other, the index, the suspects, and
// at the end where those two begin, the identity and the word again. A part is its
// length (32 bits), the directory's path, what was known of the directory, and the
// entries: length, name, what was known. The index is pairs of a hash of the path
// and the part's offset, sorted.
constexpr std::string_view kWord = "qxmanif1";
constexpr size_t kIdentityBytes = 16;
constexpr size_t kTrailer = 32 + 2 * kIdentityBytes + 8;
constexpr size_t kPair = 16;              // bytes
constexpr size_t kWriteSize = 1 << 20;    // bytes
constexpr size_t kLargestPart = 4 << 20;  // bytes
constexpr std::uint64_t kMost = UINT64_MAX;
// The kernel's clock for times of files stands still for up to this long.
constexpr std::int64_t kClockTick = 25000000;     // nanoseconds
constexpr std::int64_t kCoarseTick = 2100000000;  // where only seconds are kept
constexpr std::int64_t kBillion = 1000000000;

enum : unsigned { kFresh = 1, kHasDigest = 2, kHasBlocks = 4, kLinked = 8 };

void putKnown(Buffer& to, const Known& known) {
  putNumber(to, (known.fresh ? kFresh : 0U) | (known.digest ? kHasDigest : 0U) |
                    (known.blocks.empty() ? 0U : kHasBlocks) | (known.linked ? kLinked : 0U));
  putNumber(to, known.mode);
  putNumber(to, known.device);
  putNumber(to, known.inode);
  putNumber(to, known.uid);
  putNumber(to, known.gid);
  putNumber(to, known.size);
  putSigned(to, known.seconds);
  putNumber(to, known.nanoseconds);
  putSigned(to, known.changeSeconds);
  putNumber(to, known.changeNanoseconds);
  if (known.digest) putDigest(to, *known.digest);
  if (known.blocks.empty()) return;
  putNumber(to, known.blocks.size());
  for (const Digest& block : known.blocks) putDigest(to, block);
}

Known takeKnown(Decoder& from) {
  Known known;
  const std::uint64_t flags = from.number(kFresh | kHasDigest | kHasBlocks | kLinked, "flags");
  known.fresh = (flags & kFresh) != 0;
  known.linked = (flags & kLinked) != 0;
  known.mode = static_cast<mode_t>(from.number(UINT32_MAX, "mode"));
  known.device = from.number();
  known.inode = from.number();
  known.uid = static_cast<uid_t>(from.number(UINT32_MAX, "owner"));
  known.gid = static_cast<gid_t>(from.number(UINT32_MAX, "group"));
  known.size = from.number();
  known.seconds = from.signedNumber();
  known.nanoseconds = static_cast<std::uint32_t>(from.number(UINT32_MAX, "nanoseconds"));
  known.changeSeconds = from.signedNumber();
  known.changeNanoseconds = static_cast<std::uint32_t>(from.number(UINT32_MAX, "nanoseconds"));
  if ((flags & kHasDigest) != 0) known.digest = takeDigest(from);
  if ((flags & kHasBlocks) != 0) {
    const std::uint64_t count = from.number(from.left() / 16, "number of blocks");
    for (std::uint64_t i = 0; i < count; ++i) known.blocks.push_back(takeDigest(from));
  }
  return known;
}

std::uint64_t hashOf(std::string_view text) { return digestOf(text).low; }

std::uint64_t hashOf(const std::vector<std::string>& patterns) {
  Buffer all;
  for (const std::string& pattern : patterns) putText(all, pattern);
  return hashOf(all.view());
}

std::string fileIn(const std::string& folder) { return folder + "/manifest"; }

std::string newIdentity() {
  constexpr char kDigits[] = "0123456789abcdef";
  unsigned char bytes[kIdentityBytes];
  if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) return {};
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace

Known knownOf(const struct stat& status) {
  Known known;
  known.mode = status.st_mode;
  known.device = status.st_dev;
  known.inode = status.st_ino;
  known.uid = status.st_uid;
  known.gid = status.st_gid;
  known.size = static_cast<std::uint64_t>(status.st_size);
  known.seconds = status.st_mtim.tv_sec;
  known.nanoseconds = static_cast<std::uint32_t>(status.st_mtim.tv_nsec);
  known.changeSeconds = status.st_ctim.tv_sec;
  known.changeNanoseconds = static_cast<std::uint32_t>(status.st_ctim.tv_nsec);
  known.linked = !S_ISDIR(status.st_mode) && status.st_nlink > 1;
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age =
      (now.tv_sec - status.st_ctim.tv_sec) * kBillion + now.tv_nsec - status.st_ctim.tv_nsec;
  known.fresh = age < (status.st_ctim.tv_nsec == 0 ? kCoarseTick : kClockTick);
  return known;
}

bool sameApartFromChangeTime(const Known& then, const struct stat& now) {
  return (then.mode & S_IFMT) == (now.st_mode & S_IFMT) && then.device == now.st_dev &&
         then.inode == now.st_ino && then.size == static_cast<std::uint64_t>(now.st_size) &&
         then.seconds == now.st_mtim.tv_sec &&
         then.nanoseconds == static_cast<std::uint32_t>(now.st_mtim.tv_nsec);
}

bool unchanged(const Known& then, const struct stat& now) {
  return !then.fresh && sameApartFromChangeTime(then, now) && then.mode == now.st_mode &&
         then.uid == now.st_uid && then.gid == now.st_gid &&
         then.changeSeconds == now.st_ctim.tv_sec &&
         then.changeNanoseconds == static_cast<std::uint32_t>(now.st_ctim.tv_nsec);
}

void ManifestPart::begin(std::string_view path, const struct stat& directory) {
  path_ = path;
  directory_ = knownOf(directory);
  beginAgain();
}

void ManifestPart::beginAgain() {
  bytes_.clear();
  putText(bytes_, path_);
  putKnown(bytes_, directory_);
}

void ManifestPart::add(std::string_view name, const Known& known) {
  entry_.clear();
  putText(entry_, name);
  putKnown(entry_, known);
  putText(bytes_, entry_.view());
}

bool ManifestPart::large() const { return bytes_.size() > kLargestPart; }

ManifestWriter::ManifestWriter(const std::string& folder, const std::vector<std::string>& patterns)
    : name_(fileIn(folder)),
      newName_(name_ + ".new"),
      identity_(newIdentity()),
      patterns_(hashOf(patterns)) {
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return;
  ::unlink(newName_.c_str());
  file_ = Fd(::open(newName_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  good_ = file_ && !identity_.empty();
  buffer_.append(kWord);
}

ManifestWriter::~ManifestWriter() {
  if (file_) ::unlink(newName_.c_str());
}

void ManifestWriter::flush() {
  good_ = good_ && writeAll(file_.get(), buffer_.view());
  offset_ += buffer_.size();
  buffer_.clear();
}

void ManifestWriter::add(const ManifestPart& part) { add(part.path(), part.bytes().view()); }

void ManifestWriter::add(std::string_view path, std::string_view bytes) {
  const std::scoped_lock lock(mutex_);
  if (!good_) return;
  index_.emplace_back(hashOf(path), offset_ + buffer_.size());
  putFixed32(buffer_, static_cast<std::uint32_t>(bytes.size()));
  buffer_.append(bytes);
  if (buffer_.size() > kWriteSize) flush();
}

void ManifestWriter::addSuspects(const std::vector<std::pair<dev_t, ino_t>>& suspects) {
  const std::scoped_lock lock(mutex_);
  suspects_.insert(suspects_.end(), suspects.begin(), suspects.end());
}

std::string ManifestWriter::finish() {
  const std::scoped_lock lock(mutex_);
  std::sort(index_.begin(), index_.end());
  std::sort(suspects_.begin(), suspects_.end());
  const std::uint64_t indexAt = offset_ + buffer_.size();
  for (const auto& [hash, at] : index_) {
    putFixed64(buffer_, hash);
    putFixed64(buffer_, at);
  }
  for (const auto& [device, inode] : suspects_) {
    putFixed64(buffer_, device);
    putFixed64(buffer_, inode);
  }
  putFixed64(buffer_, indexAt);
  putFixed64(buffer_, index_.size());
  putFixed64(buffer_, suspects_.size());
  putFixed64(buffer_, patterns_);
  buffer_.append(identity_);
  buffer_.append(kWord);
  flush();
  file_.reset();
  if (good_ && ::rename(newName_.c_str(), name_.c_str()) == 0) return identity_;
  ::unlink(newName_.c_str());
  ::unlink(name_.c_str());
  return {};
}

std::unique_ptr<Manifest> Manifest::open(const std::string& folder,
                                         const std::vector<std::string>& patterns) {
  Fd file(::open(fileIn(folder).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_uid != ::geteuid() || status.st_size == 0)
    return nullptr;
  std::unique_ptr<Manifest> manifest(
      new Manifest(std::move(file), static_cast<std::uint64_t>(status.st_size)));
  return manifest->load(patterns) ? std::move(manifest) : nullptr;
}

bool Manifest::read(std::uint64_t offset, size_t count, Buffer& to) const {
  to.clear();
  if (offset > size_ || count > size_ - offset) return false;
  char* at = to.room(count);
  while (to.size() < count) {
    const ssize_t got = ::pread(file_.get(), at + to.size(), count - to.size(),
                                static_cast<off_t>(offset + to.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    to.grow(static_cast<size_t>(got));
  }
  return true;
}

bool Manifest::readPairs(std::uint64_t offset, std::uint64_t count, Pairs& to) const {
  Buffer bytes;
  if (!read(offset, count * kPair, bytes)) return false;
  Decoder from(bytes.view());
  to.reserve(count);
  while (!from.atEnd()) {
    const std::uint64_t first = from.fixed64();
    to.emplace_back(first, from.fixed64());
  }
  return true;
}

bool Manifest::load(const std::vector<std::string>& patterns) {
  Buffer bytes;
  if (size_ < kTrailer || !read(0, kWord.size(), bytes) || bytes.view() != kWord ||
      !read(size_ - kTrailer, kTrailer, bytes))
    return false;
  Decoder from(bytes.view());
  indexAt_ = from.fixed64();
  const std::uint64_t parts = from.fixed64();
  const std::uint64_t suspects = from.fixed64();
  const std::uint64_t madeWith = from.fixed64();
  identity_ = from.bytes(2 * kIdentityBytes, "identity");
  if (from.bytes(kWord.size(), "word") != kWord || madeWith != hashOf(patterns)) return false;
  if (parts > size_ / kPair || suspects > size_ / kPair) return false;
  return readPairs(indexAt_, parts, index_) &&
         readPairs(indexAt_ + parts * kPair, suspects, suspects_);
}

bool Manifest::suspects(dev_t device, ino_t inode) const {
  return std::binary_search(suspects_.begin(), suspects_.end(), std::pair(device, inode));
}

std::optional<Manifest::Directory> Manifest::directory(std::string_view path) const {
  const std::uint64_t hash = hashOf(path);
  std::optional<Directory> found;
  for (auto at = std::lower_bound(index_.begin(), index_.end(), std::pair(hash, std::uint64_t{0}));
       at != index_.end() && at->first == hash; ++at) {
    Buffer length;
    Buffer bytes;
    if (!read(at->second, 4, length) ||
        !read(at->second + 4, Decoder(length.view()).fixed32(), bytes))
      throw ProtocolError("a manifest is damaged");
    Decoder part(bytes.view());
    if (part.text(kLongestPath, "path") != path) continue;
    const Known own = takeKnown(part);
    if (!found) {
      found.emplace();
      found->own_ = own;
    }
    while (!part.atEnd()) {
      const std::string_view entry = part.text(kMost, "entry of a manifest");
      found->items_.push_back({hashOf(Decoder(entry).text(kLongestName, "name")), entry, false});
    }
    found->parts_.push_back(std::move(bytes));
  }
  if (found) found->sort();
  return found;
}

// Of entries that are there several times the last one holds.
void Manifest::Directory::sort() {
  std::stable_sort(items_.begin(), items_.end(),
                   [](const Item& a, const Item& b) { return a.hash < b.hash; });
  const auto sameName = [](const Item& a, const Item& b) {
    return a.hash == b.hash && Decoder(a.bytes).text(kLongestName, "name") ==
                                   Decoder(b.bytes).text(kLongestName, "name");
  };
  const auto end = std::unique(items_.rbegin(), items_.rend(), sameName);
  items_.erase(items_.begin(), end.base());
}

void Manifest::Part::forEachEntry(
    const std::function<void(std::string_view, const Known&)>& use) const {
  for (Decoder part(entries); !part.atEnd();) {
    Decoder entry(part.text(kMost, "entry of a manifest"));
    const std::string_view name = entry.text(kLongestName, "name");
    use(name, takeKnown(entry));
  }
}

std::string Manifest::Part::bytesWithout(const std::set<std::string>& names) const {
  Buffer left;
  left.append(bytes.substr(0, bytes.size() - entries.size()));
  for (Decoder part(entries); !part.atEnd();) {
    const std::string_view entry = part.text(kMost, "entry of a manifest");
    if (!names.contains(std::string(Decoder(entry).text(kLongestName, "name"))))
      putText(left, entry);
  }
  return std::string(left.view());
}

void Manifest::forEachPart(const std::function<void(const Part&)>& use) const {
  constexpr size_t kHeader = 4;
  Buffer bytes;
  size_t at = 0;  // in these
  std::uint64_t next = kWord.size();
  const auto ensure = [&](size_t count) {
    if (bytes.size() - at >= count) return;
    const std::uint64_t left = indexAt_ - next;
    if (count > left || !read(next, std::min<std::uint64_t>(left, count + kWriteSize), bytes))
      throw ProtocolError("a manifest is damaged");
    at = 0;
  };
  while (next < indexAt_) {
    ensure(kHeader);
    const size_t size = Decoder(bytes.view().substr(at)).fixed32();
    ensure(kHeader + size);
    Part part;
    part.bytes = bytes.view().substr(at + kHeader, size);
    Decoder from(part.bytes);
    part.path = from.text(kLongestPath, "path");
    part.own = takeKnown(from);
    part.entries = part.bytes.substr(size - from.left());
    use(part);
    at += kHeader + size;
    next += kHeader + size;
  }
}

std::optional<Known> Manifest::Directory::find(std::string_view name) {
  const std::uint64_t hash = hashOf(name);
  auto item = std::lower_bound(items_.begin(), items_.end(), hash,
                               [](const Item& one, std::uint64_t h) { return one.hash < h; });
  for (; item != items_.end() && item->hash == hash; ++item) {
    Decoder from(item->bytes);
    if (from.text(kLongestName, "name") != name) continue;
    item->asked = true;
    return takeKnown(from);
  }
  return std::nullopt;
}

std::vector<std::pair<std::string, Known>> Manifest::Directory::rest() const {
  std::vector<std::pair<std::string, Known>> names;
  for (const Item& item : items_) {
    if (item.asked) continue;
    Decoder from(item.bytes);
    const std::string name(from.text(kLongestName, "name"));
    names.emplace_back(name, takeKnown(from));
  }
  return names;
}

std::vector<std::string> Manifest::Directory::names(size_t most) const {
  std::vector<std::string> names;
  for (size_t i = 0; i < std::min(most, items_.size()); ++i)
    names.emplace_back(Decoder(items_[i].bytes).text(kLongestName, "name"));
  return names;
}

}  // namespace engine
