#include "frame/answer_fields.h"

#include "frame/plugin.h"

namespace P2V {

int BytesWriter::write(QXL::QXLMessageIterator& out) const {
  return out.putValueLongLong(m_bytes, kBytesField);
}

int BytesReader::read(QXL::QXLMessageIterator& in) {
  return in.getValueLongLong(*m_bytes, kBytesField);
}

int QuotaWriter::write(QXL::QXLMessageIterator& out) const {
  return out.putValueBase64(m_text, kQuotaField);
}

int QuotaReader::read(QXL::QXLMessageIterator& in) {
  return in.getValueBase64(*m_text, kQuotaField);
}

}  // namespace P2V
