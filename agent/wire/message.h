// Messages as JSON.
#ifndef QX_AGENT_WIRE_MESSAGE_H
#define QX_AGENT_WIRE_MESSAGE_H

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>

#include "framework/message.h"

namespace agent {

/// A message is a JSON object. A field's key is its id in decimal; its value is a
/// number, {"base64": text} or {"object": {...}}. Errors are an array under
/// "errors", each {"code": number, "text": base64}.
class Message : public QXL::QXLMessageIterator {
 public:
  Message();
  explicit Message(nlohmann::json body);
  ~Message() override;

  int putValueLongLong(long long value, int id) override;
  int getValueLongLong(long long& value, int id) override;
  int putValueBase64(const std::string& value, int id) override;
  int getValueBase64(std::string& value, int id) override;
  int putError(int code, const std::string& text) override;

  /// The first error; nothing when the message has none.
  std::optional<std::pair<int, std::string>> firstError() const;

  const nlohmann::json& body() const { return *body_; }

  /// Throws std::runtime_error for a body that is not a message.
  static void check(const nlohmann::json& body);

 protected:
  int putWriter(const QXL::QXLWriterPrototype& writer, int id) override;
  int getReader(QXL::QXLReaderPrototype& reader, int id) override;

 private:
  /// Behind a pointer, for the sake of the many that include this.
  std::unique_ptr<nlohmann::json> body_;
};

}  // namespace agent

#endif
