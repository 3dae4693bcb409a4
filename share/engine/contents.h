#ifndef QX_SHARE_ENGINE_CONTENTS_H
#define QX_SHARE_ENGINE_CONTENTS_H

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "share/engine/extents.h"
#include "share/engine/record_stream.h"

namespace engine {

/// What became of one file's contents.
struct Sent {
  bool good = false;             ///< false: errno says why it could not be read to the end
  std::uint64_t size = 0;        ///< as it was read: shorter than expected if it was cut meanwhile
  std::optional<Digest> digest;  ///< of all of it
  std::vector<Digest> blocks;    ///< of a large file
};

/// Sends the contents of files. One thread uses it.
class ContentsSender {
 public:
  /// bytes counts what was read, for the progress.
  ContentsSender(RecordStream& stream, std::atomic<std::uint64_t>& bytes);

  /// Sends the entry of a regular file with its contents; status is that of the
  /// open file. Holes are neither read nor sent. Throws Failure.
  Sent send(int file, const struct stat& status, const Entry& entry);

  /// Sends the entry of a large file with those blocks that have another hash than
  /// before. Throws Failure.
  Sent sendPatch(int file, const struct stat& status, const Entry& entry,
                 const std::vector<Digest>& before);

  /// Reads only. Nothing if the file cannot be read, or was cut meanwhile.
  std::optional<Digest> digest(int file, const struct stat& status);

 private:
  Sent sendWhole(int file, const Entry& entry);
  Sent sendPieces(int file, const struct stat& status, const Entry& entry);
  bool sendExtent(int file, const Extents& extent, bool hashBlocks, Sent& sent);
  bool patchBlock(int file, std::uint64_t at, const Digest* before, Sent& sent);
  void begin(Record record, const Entry& entry);
  void end(const Sent& sent);

  RecordStream& stream_;
  std::atomic<std::uint64_t>& bytes_;
  Digester digester_;
  BlockHasher blocks_;
  Buffer scratch_;
};

/// Bytes that an entry takes in a record, or a little more.
size_t recordSize(const Entry& entry);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_CONTENTS_H
