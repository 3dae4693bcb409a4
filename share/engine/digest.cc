#include "share/engine/digest.h"

#include <xxhash.h>

#include <new>

namespace engine {

Digest digestOf(std::string_view contents) {
  const XXH128_hash_t hash = XXH3_128bits(contents.data(), contents.size());
  return {hash.high64, hash.low64};
}

Digester::Digester() : state_(XXH3_createState()) {
  if (state_ == nullptr) throw std::bad_alloc();
  begin();
}

Digester::~Digester() { XXH3_freeState(state_); }

void Digester::begin() {
  XXH3_128bits_reset(state_);
  next_ = 0;
}

void Digester::add(std::uint64_t offset, std::string_view piece) {
  if (offset != next_) {
    unsigned char bytes[sizeof offset];
    for (size_t i = 0; i < sizeof offset; ++i)
      bytes[i] = static_cast<unsigned char>(offset >> (8 * i));
    XXH3_128bits_update(state_, bytes, sizeof bytes);
  }
  XXH3_128bits_update(state_, piece.data(), piece.size());
  next_ = offset + piece.size();
}

Digest Digester::result() const {
  const XXH128_hash_t hash = XXH3_128bits_digest(state_);
  return {hash.high64, hash.low64};
}

}  // namespace engine
