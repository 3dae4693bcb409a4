// Writers and readers of the values that stages answer with. A worker writes an
// answer with a writer, a proxy takes it with the reader of the same kind.
#ifndef QX_FRAME_ANSWER_FIELDS_H
#define QX_FRAME_ANSWER_FIELDS_H

#include <string>

#include "framework/message.h"

namespace P2V {

/// A count of bytes, field 1017.
class BytesWriter : public QXL::QXLWriterPrototype {
 public:
  explicit BytesWriter(long long bytes) : bytes_(bytes) {}
  int write(QXL::QXLMessageIterator& out) const override;

 private:
  long long bytes_;
};

/// Reads into a variable that must outlive the reader; an answer without the
/// field leaves it alone and is an error.
class BytesReader : public QXL::QXLReaderPrototype {
 public:
  explicit BytesReader(long long* bytes)
      : QXLReaderPrototype(QXL::QXLReaderRequired), bytes_(bytes) {}
  int read(QXL::QXLMessageIterator& in) override;

 private:
  long long* bytes_;
};

/// The quota dump, field 1811, in base64. The writer refers to the caller's text.
class QuotaWriter : public QXL::QXLWriterPrototype {
 public:
  explicit QuotaWriter(const std::string& text) : text_(text) {}
  int write(QXL::QXLMessageIterator& out) const override;

 private:
  const std::string& text_;
};

/// As BytesReader.
class QuotaReader : public QXL::QXLReaderPrototype {
 public:
  explicit QuotaReader(std::string* text)
      : QXLReaderPrototype(QXL::QXLReaderRequired), text_(text) {}
  int read(QXL::QXLMessageIterator& in) override;

 private:
  std::string* text_;
};

}  // namespace P2V

#endif
