#ifndef QX_SHARE_ENGINE_CONTENTS_H
#define QX_SHARE_ENGINE_CONTENTS_H

#include <sys/stat.h>

#include <atomic>
#include <cstdint>

#include "share/engine/record_stream.h"

namespace engine {

/// What became of one file's contents.
struct Sent {
  bool good = false;  // false: errno says why it could not be read to the end
  Digest digest;
  std::uint64_t size = 0;  // as it was read: shorter than expected if it was cut meanwhile
};

/// Sends the contents of files. One thread uses it.
class ContentsSender {
 public:
  /// bytes counts what was read, for the progress.
  ContentsSender(RecordStream& stream, std::atomic<std::uint64_t>& bytes)
      : stream_(stream), bytes_(bytes) {}

  /// Sends the entry of a regular file with its contents; status is that of the
  /// open file. Holes are neither read nor sent. Throws Failure.
  Sent send(int file, const struct stat& status, const Entry& entry);

 private:
  Sent sendWhole(int file, const Entry& entry, size_t attributesSize);
  Sent sendPieces(int file, const struct stat& status, const Entry& entry, size_t attributesSize);
  bool sendExtent(int file, std::uint64_t from, std::uint64_t to, bool skipZeros, Sent& sent);

  RecordStream& stream_;
  std::atomic<std::uint64_t>& bytes_;
  Digester digester_;
};

/// Bytes that an entry takes in a record, or a little more.
size_t recordSize(const Entry& entry);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_CONTENTS_H
