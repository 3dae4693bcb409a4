// Messages: typed fields by integer id, the body of every request and answer.
#ifndef QX_FRAMEWORK_MESSAGE_H
#define QX_FRAMEWORK_MESSAGE_H

#include <string>

#include "framework/ref_counter.h"

namespace QXL {

class QXLMessageIterator;

/// Puts something into a message. Returns 0, or non-zero with the reason in
/// QXL::getErrorMessage().
class QXL_API QXLWriterPrototype {
 public:
  virtual ~QXLWriterPrototype() = default;
  virtual int write(QXLMessageIterator& out) const = 0;
};

/// How a reader is applied.
enum QXLReaderFlags {
  QXLReaderOptional = 0,  ///< a message without the field leaves the variable alone
  QXLReaderRequired = 1   ///< a message without the field is an error
};

/// Takes something out of a message into a variable of its creator.
class QXL_API QXLReaderPrototype {
 public:
  explicit QXLReaderPrototype(QXLReaderFlags flags) : flags_(flags) {}
  virtual ~QXLReaderPrototype() = default;

  /// Returns 0, or non-zero with the reason in QXL::getErrorMessage().
  virtual int read(QXLMessageIterator& in) = 0;
  QXLReaderFlags flags() const { return flags_; }

 private:
  QXLReaderFlags flags_;
};

/// One message, or the part of one that belongs to an object field. Fields are
/// typed; the id of an object field may be 0 for "at the current position".
/// Getters return 0 and fill their argument, or non-zero when the field is absent
/// or of another type (the argument is left alone then). Putters replace a field
/// of the same id and return 0, or non-zero with the reason in
/// QXL::getErrorMessage(). One thread at a time.
class QXL_API QXLMessageIterator : public virtual QXLRefCounter {
 public:
  virtual int putValueLongLong(long long value, int id) = 0;
  virtual int getValueLongLong(long long& value, int id) = 0;

  /// Strings of any bytes; they travel in base64.
  virtual int putValueBase64(const std::string& value, int id) = 0;
  virtual int getValueBase64(std::string& value, int id) = 0;

  /// Records: T has a nested Writer, built from a const T&, and a nested Reader,
  /// built from a T&, that define the layout of the fields inside.
  template <class T>
  int putObj(const T& record, int id) {
    return putWriter(typename T::Writer(record), id);
  }
  template <class T>
  int getObj(T& record, int id) {
    typename T::Reader reader(record);
    return getReader(reader, id);
  }

  /// Adds an error to the message. The first one added is the message's result.
  virtual int putError(int code, const std::string& text) = 0;

 protected:
  virtual int putWriter(const QXLWriterPrototype& writer, int id) = 0;
  virtual int getReader(QXLReaderPrototype& reader, int id) = 0;
};

}  // namespace QXL

#endif
