#ifndef QX_SHARE_ENGINE_RECORD_STREAM_H
#define QX_SHARE_ENGINE_RECORD_STREAM_H

#include <atomic>
#include <cstdint>

#include "share/engine/compression.h"
#include "share/engine/frame.h"
#include "share/engine/records.h"

namespace engine {

/// Gathers the records of one lane into frames. One thread uses it.
class RecordStream {
 public:
  RecordStream(FrameWriter& writer, CompressionControl& control, std::uint8_t lane);

  /// Sends off what is gathered, if a record of this size has no room beside it.
  /// A record is whole in one frame, so call this before each.
  void makeRoom(size_t size);

  /// Adds every record to this counter from now on; null for none.
  void countIn(std::atomic<std::uint64_t>* counter) { counter_ = counter; }

  /// The record's kind. What follows is put into buffer().
  void begin(Record record);
  Buffer& buffer() { return frame_; }

  /// Sends off what is gathered, if anything. Throws Failure.
  void flush();

 private:
  FrameWriter& writer_;
  CompressionControl& control_;
  std::uint8_t lane_;
  std::atomic<std::uint64_t>* counter_ = nullptr;
  Buffer frame_;
  Compressor compressor_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_RECORD_STREAM_H
