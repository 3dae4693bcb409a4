#include "share/engine/record_stream.h"

namespace engine {

RecordStream::RecordStream(FrameWriter& writer, CompressionControl& control, std::uint8_t lane)
    : writer_(writer), control_(control), lane_(lane), frame_(emptyFrame(kUsualFrame)) {}

void RecordStream::makeRoom(size_t size) {
  if (frame_.size() > kFrameHeader && frame_.size() - kFrameHeader + size > kUsualFrame) flush();
}

void RecordStream::begin(Record record) {
  if (counter_ != nullptr) ++*counter_;
  frame_.room(1)[0] = static_cast<char>(record);
  frame_.grow(1);
}

void RecordStream::flush() {
  if (frame_.size() == kFrameHeader) return;
  const int level = control_.level();
  if (level == CompressionControl::kOff || !compressor_.compress(level, frame_)) {
    writer_.write(Kind::kRecords, lane_, 0, frame_);
  } else {
    writer_.write(Kind::kRecords, lane_, kCompressed, compressor_.frame());
  }
  control_.sent(writer_);
  frame_.resize(kFrameHeader);
}

}  // namespace engine
