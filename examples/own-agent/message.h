// Requests and answers of an agent that serves nobody but itself.
#ifndef OWN_AGENT_MESSAGE_H
#define OWN_AGENT_MESSAGE_H

#include <map>
#include <string>

#include "framework/migrate_params.h"

/// A message that never leaves the process: where others lay a record out in fields, it has
/// the record itself.
class Message : public QXL::QXLMessageIterator {
 public:
  int putValueLongLong(long long value, int id) override;
  int getValueLongLong(long long& value, int id) override;
  int putValueBase64(const std::string& value, int id) override;
  int getValueBase64(std::string& value, int id) override;
  int putError(int code, const std::string& text) override;

  QXA::QXAMigrateP2VSerializerParams record;
  int code = 0;  ///< of the first error; 0 when there is none
  std::string text;

 protected:
  int putWriter(const QXL::QXLWriterPrototype& writer, int id) override;
  int getReader(QXL::QXLReaderPrototype& reader, int id) override;

 private:
  std::map<int, long long> numbers_;
  std::map<int, std::string> strings_;
};

/// The answer of the request that this thread serves; null between requests.
extern thread_local boost::intrusive_ptr<Message> currentAnswer;

#endif
