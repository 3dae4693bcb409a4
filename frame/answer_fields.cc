#include "frame/answer_fields.h"

#include "frame/plugin.h"

namespace P2V {

int BytesWriter::write(QXL::QXLMessageIterator& out) const {
  return out.putValueLongLong(bytes_, kBytesField);
}

int BytesReader::read(QXL::QXLMessageIterator& in) {
  return in.getValueLongLong(*bytes_, kBytesField);
}

int QuotaWriter::write(QXL::QXLMessageIterator& out) const {
  return out.putValueBase64(text_, kQuotaField);
}

int QuotaReader::read(QXL::QXLMessageIterator& in) {
  return in.getValueBase64(*text_, kQuotaField);
}

}  // namespace P2V
