#ifndef QX_SHARE_ENGINE_MANIFEST_H
#define QX_SHARE_ENGINE_MANIFEST_H

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "share/engine/beneath.h"
#include "share/engine/records.h"

namespace engine {

/// What tells whether an entry has changed since it was sent.
struct Known {
  mode_t mode = 0;  ///< with the type
  dev_t device = 0;
  ino_t inode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  std::uint64_t size = 0;
  std::int64_t seconds = 0;  ///< modification time
  std::uint32_t nanoseconds = 0;
  std::int64_t changeSeconds = 0;
  std::uint32_t changeNanoseconds = 0;
  /// It was changed so shortly before it was looked at that the times of a further
  /// change might be the same.
  bool fresh = false;
  bool linked = false;           ///< a file that had more names
  std::optional<Digest> digest;  ///< of a file's contents
  std::vector<Digest> blocks;    ///< of a large file's blocks; see BlockHasher
};

/// What stat says, as of now.
Known knownOf(const struct stat& status);

/// Whether nothing has happened to the entry between the two.
bool unchanged(const Known& then, const struct stat& now);
/// Whether at most what is not content has.
bool sameApartFromChangeTime(const Known& then, const struct stat& now);

/// Files from here on have a hash for each block.
inline constexpr std::uint64_t kLargeFile = 4 << 20;  ///< bytes
inline constexpr size_t kBlock = 128 << 10;           ///< bytes

/// The entries of one directory, on their way into a manifest. One thread uses it.
class ManifestPart {
 public:
  void begin(std::string_view path, const struct stat& directory);
  void add(std::string_view name, const Known& known);
  const Buffer& bytes() const { return bytes_; }
  const std::string& path() const { return path_; }
  bool large() const;
  /// Goes on with the same directory.
  void beginAgain();

 private:
  std::string path_;
  Known directory_;
  Buffer bytes_;
  Buffer entry_;
};

/// Writes a manifest, part by part, to a file that is there under its name only
/// when it is complete. Any thread may use it.
class ManifestWriter {
 public:
  /// Makes the folder if it is not there, for root only. patterns are those of the
  /// exclusions. good() tells whether it worked.
  ManifestWriter(const std::string& folder, const std::vector<std::string>& patterns);
  ~ManifestWriter();
  ManifestWriter(const ManifestWriter&) = delete;
  ManifestWriter& operator=(const ManifestWriter&) = delete;

  bool good() const { return good_; }
  /// What a later part says of an entry holds.
  void add(const ManifestPart& part);
  /// A part of an earlier manifest, as it was there.
  void add(std::string_view path, std::string_view bytes);
  /// Files that somebody may write to without a trace in their times.
  void addSuspects(const std::vector<std::pair<dev_t, ino_t>>& suspects);

  /// Puts it in the place of an older one. Empty if that, or anything before, did
  /// not work, and then there is none; else its identity.
  std::string finish();

 private:
  void flush();

  std::string name_;
  std::string newName_;
  std::string identity_;
  std::uint64_t patterns_;
  bool good_ = false;
  Fd file_;
  std::mutex mutex_;
  Buffer buffer_;
  std::uint64_t offset_ = 0;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> index_;  ///< hash of path, offset
  std::vector<std::pair<dev_t, ino_t>> suspects_;
};

/// Reads a manifest, and has no more of it in memory than where each directory is.
/// Any thread may use it.
class Manifest {
 public:
  /// Nothing if there is none in the folder, it is damaged, or it was made with
  /// other exclusions.
  static std::unique_ptr<Manifest> open(const std::string& folder,
                                        const std::vector<std::string>& patterns);
  const std::string& identity() const { return identity_; }
  bool suspects(dev_t device, ino_t inode) const;
  /// All of them.
  const std::vector<std::pair<dev_t, ino_t>>& suspects() const { return suspects_; }

  /// The entries of one directory as they were.
  class Directory {
   public:
    const Known& own() const { return own_; }
    /// The entry of this name, and that it was asked for.
    std::optional<Known> find(std::string_view name);
    /// The names that were not asked for.
    std::vector<std::pair<std::string, Known>> rest() const;
    /// At most so many names of it.
    std::vector<std::string> names(size_t most) const;

   private:
    friend class Manifest;
    void sort();
    struct Item {
      std::uint64_t hash;
      std::string_view bytes;  ///< in one of the parts
      bool asked;
    };
    Known own_;
    std::vector<Buffer> parts_;
    std::vector<Item> items_;
  };
  /// Nothing if the directory is not in it. Throws ProtocolError if the file is
  /// damaged.
  std::optional<Directory> directory(std::string_view path) const;

  /// Entries of one directory, of which a large one has several parts.
  struct Part {
    std::string_view path;
    Known own;
    std::string_view bytes;    ///< all of it
    std::string_view entries;  ///<

    void forEachEntry(const std::function<void(std::string_view name, const Known&)>& use) const;
    /// All of it but the entries of these names.
    std::string bytesWithout(const std::set<std::string>& names) const;
  };
  /// Calls `use` with every part, from front to back; it is there until the call ends.
  /// Throws ProtocolError if the file is damaged.
  void forEachPart(const std::function<void(const Part&)>& use) const;

 private:
  using Pairs = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

  explicit Manifest(Fd file, std::uint64_t size) : file_(std::move(file)), size_(size) {}
  bool load(const std::vector<std::string>& patterns);
  bool read(std::uint64_t offset, size_t count, Buffer& to) const;
  bool readPairs(std::uint64_t offset, std::uint64_t count, Pairs& to) const;

  Fd file_;
  std::uint64_t size_;
  std::uint64_t indexAt_ = 0;
  std::string identity_;
  Pairs index_;     ///< hash of path, offset
  Pairs suspects_;  ///< device, inode
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_MANIFEST_H
