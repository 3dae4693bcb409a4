#ifndef QX_SHARE_ENGINE_DIGEST_H
#define QX_SHARE_ENGINE_DIGEST_H

#include <cstdint>
#include <memory>
#include <string_view>

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

}  // namespace engine

#endif  // QX_SHARE_ENGINE_DIGEST_H
