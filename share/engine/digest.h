#ifndef QX_SHARE_ENGINE_DIGEST_H
#define QX_SHARE_ENGINE_DIGEST_H

#include <cstdint>
#include <string_view>
#include <vector>

struct XXH3_state_s;

namespace engine {

/// 128 bits that stand for a file's contents.
struct Digest {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  bool operator==(const Digest&) const = default;
};

/// XXH3 of contents that are at hand.
Digest digestOf(std::string_view contents);

/// The same of contents that come in pieces, from front to back. Where a hole
/// (or, of a patch, a part that is not sent) is passed over, the offset at which
/// the contents go on is taken in instead. How the pieces are cut makes no
/// difference. One that is begun again is as new; not for two threads at once.
class Digester {
 public:
  Digester();
  ~Digester();
  Digester(const Digester&) = delete;
  Digester& operator=(const Digester&) = delete;

  void begin();
  void add(std::uint64_t offset, std::string_view piece);
  Digest result() const;

 private:
  XXH3_state_s* state_;
  std::uint64_t next_ = 0;
};

/// Hashes of a file's blocks, of a size that is given, from its contents in pieces
/// from front to back. A block that is nothing but hole has a hash of 0; a hole within a block
/// counts as zero bytes.
class BlockHasher {
 public:
  explicit BlockHasher(size_t blockSize);
  ~BlockHasher();
  BlockHasher(const BlockHasher&) = delete;
  BlockHasher& operator=(const BlockHasher&) = delete;

  void begin();
  void add(std::uint64_t offset, std::string_view piece);
  /// Of a file of this size; begin() comes next.
  std::vector<Digest> finish(std::uint64_t size);

 private:
  void feed(std::string_view piece);
  void skipTo(std::uint64_t offset);
  void closeBlock();

  size_t blockSize_;
  XXH3_state_s* state_;
  std::uint64_t next_ = 0;
  bool touched_ = false;  ///< the block that next_ is in holds data
  std::vector<Digest> blocks_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_DIGEST_H
