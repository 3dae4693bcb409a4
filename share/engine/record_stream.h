#ifndef QX_SHARE_ENGINE_RECORD_STREAM_H
#define QX_SHARE_ENGINE_RECORD_STREAM_H

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

  /// The record's kind. What follows is put into buffer().
  void begin(Record record) { frame_.room(1)[0] = static_cast<char>(record), frame_.grow(1); }
  Buffer& buffer() { return frame_; }

  /// Sends off what is gathered, if anything. Throws Failure.
  void flush();

 private:
  FrameWriter& writer_;
  CompressionControl& control_;
  std::uint8_t lane_;
  Buffer frame_;
  Compressor compressor_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_RECORD_STREAM_H
