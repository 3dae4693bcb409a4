#include "share/engine/digest.h"

#include <xxhash.h>

#include <algorithm>
#include <new>
#include <string>
#include <utility>

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

BlockHasher::BlockHasher(size_t blockSize) : blockSize_(blockSize), state_(XXH3_createState()) {
  if (state_ == nullptr) throw std::bad_alloc();
  begin();
}

BlockHasher::~BlockHasher() { XXH3_freeState(state_); }

void BlockHasher::begin() {
  XXH3_128bits_reset(state_);
  next_ = 0;
  touched_ = false;
  blocks_.clear();
}

void BlockHasher::closeBlock() {
  const XXH128_hash_t hash = XXH3_128bits_digest(state_);
  blocks_.push_back(touched_ ? Digest{hash.high64, hash.low64} : Digest{});
  XXH3_128bits_reset(state_);
  touched_ = false;
}

void BlockHasher::feed(std::string_view piece) {
  while (!piece.empty()) {
    const size_t room = blockSize_ - next_ % blockSize_;
    const std::string_view now = piece.substr(0, room);
    XXH3_128bits_update(state_, now.data(), now.size());
    next_ += now.size();
    if (now.size() == room) closeBlock();
    piece.remove_prefix(now.size());
  }
}

void BlockHasher::skipTo(std::uint64_t offset) {
  const std::string zeros(blockSize_, '\0');
  while (next_ < offset) {
    const size_t room = blockSize_ - next_ % blockSize_;
    const std::uint64_t gap = offset - next_;
    if (gap >= room && room == blockSize_) {  // a whole block
      blocks_.push_back({});
      next_ += blockSize_;
    } else {
      feed(std::string_view(zeros).substr(0, std::min<std::uint64_t>(gap, room)));
    }
  }
}

void BlockHasher::add(std::uint64_t offset, std::string_view piece) {
  if (offset > next_) skipTo(offset);
  if (piece.empty()) return;
  touched_ = true;
  while (!piece.empty()) {
    const size_t room = blockSize_ - next_ % blockSize_;
    feed(piece.substr(0, room));
    piece.remove_prefix(std::min(room, piece.size()));
    touched_ = !piece.empty() || next_ % blockSize_ != 0;
  }
}

std::vector<Digest> BlockHasher::finish(std::uint64_t size) {
  if (size > next_) skipTo(size);
  if (next_ % blockSize_ != 0) closeBlock();
  return std::move(blocks_);
}

}  // namespace engine
