#include "agent/wire/message.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/system/last_error.h"
#include "agent/wire/base64.h"

namespace agent {

Message::Message() : Message(nlohmann::json::object()) {}

Message::Message(nlohmann::json body) : body_(std::make_unique<nlohmann::json>(std::move(body))) {}

Message::~Message() = default;

int Message::putValueLongLong(long long value, int id) {
  (*body_)[std::to_string(id)] = value;
  return 0;
}

int Message::getValueLongLong(long long& value, int id) {
  const auto field = body_->find(std::to_string(id));
  if (field == body_->end() || !field->is_number_integer()) return -1;
  value = field->get<long long>();
  return 0;
}

int Message::putValueBase64(const std::string& value, int id) {
  (*body_)[std::to_string(id)] = {{"base64", encodeBase64(value)}};
  return 0;
}

int Message::getValueBase64(std::string& value, int id) {
  const auto field = body_->find(std::to_string(id));
  if (field == body_->end() || !field->is_object()) return -1;
  const auto text = field->find("base64");
  if (text == field->end() || !text->is_string()) return -1;
  std::optional<std::string> bytes = decodeBase64(text->get_ref<const std::string&>());
  if (!bytes) return -1;
  value = std::move(*bytes);
  return 0;
}

int Message::putError(int code, const std::string& text) {
  (*body_)["errors"].push_back({{"code", code}, {"text", encodeBase64(text)}});
  return 0;
}

std::optional<std::pair<int, std::string>> Message::firstError() const {
  const auto errors = body_->find("errors");
  if (errors == body_->end() || errors->empty()) return std::nullopt;
  const nlohmann::json& first = errors->front();
  return std::pair(first.at("code").get<int>(),
                   decodeBase64(first.at("text").get<std::string>()).value_or(""));
}

void Message::check(const nlohmann::json& body) {
  if (!body.is_object()) throw std::runtime_error("a message body is not an object");
  const auto errors = body.find("errors");
  if (errors == body.end()) return;
  if (!errors->is_array()) throw std::runtime_error("a message's errors are not a list");
  for (const nlohmann::json& error : *errors) {
    if (!error.is_object() || !error.contains("code") || !error["code"].is_number_integer() ||
        !error.contains("text") || !error["text"].is_string()) {
      throw std::runtime_error("a message's error is malformed");
    }
  }
}

int Message::putWriter(const QXL::QXLWriterPrototype& writer, int id) {
  boost::intrusive_ptr<Message> part(new Message());
  if (int result = writer.write(*part)) return result;
  (*body_)[std::to_string(id)] = {{"object", *part->body_}};
  return 0;
}

int Message::getReader(QXL::QXLReaderPrototype& reader, int id) {
  const auto field = body_->find(std::to_string(id));
  if (field == body_->end() || !field->is_object() || !field->contains("object") ||
      !(*field)["object"].is_object()) {
    if (reader.flags() != QXL::QXLReaderRequired) return 0;
    return fail("the message lacks the object field " + std::to_string(id));
  }
  boost::intrusive_ptr<Message> part(new Message((*field)["object"]));
  return reader.read(*part);
}

}  // namespace agent
