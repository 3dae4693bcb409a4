#include "agent/wire/frames.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/wire/bounded_json.h"

namespace agent {

std::string encodeFrame(const nlohmann::json& frame) {
  // Names of files may hold any bytes; where such a name is part of a text for
  // people, what is not UTF-8 is shown as such.
  const std::string text = frame.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  if (text.size() > kMaxFrameBytes) {
    throw std::length_error("a frame of " + std::to_string(text.size()) + " bytes is too long");
  }
  std::string bytes;
  bytes.reserve(text.size() + 4);
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(text.size() >> shift & 255);
  }
  return bytes + text;
}

nlohmann::json parseFrame(std::string_view text) {
  nlohmann::json frame;
  try {
    frame = parseBounded(text);
  } catch (const std::runtime_error& problem) {
    throw std::runtime_error(std::string("a frame is not acceptable: ") + problem.what());
  }
  if (!frame.is_object()) throw std::runtime_error("a frame is not a JSON object");
  textOf(frame, "type");
  return frame;
}

std::optional<nlohmann::json> FrameDecoder::next() {
  if (buffer_.size() - at_ < 4) return std::nullopt;
  size_t length = 0;
  for (size_t i = 0; i < 4; ++i) {
    length = length << 8 | static_cast<unsigned char>(buffer_[at_ + i]);
  }
  if (length > most_) {
    throw std::runtime_error("a frame of " + std::to_string(length) +
                             " bytes is announced, the most is " + std::to_string(most_));
  }
  if (buffer_.size() - at_ - 4 < length) return std::nullopt;
  nlohmann::json frame = parseFrame(std::string_view(buffer_).substr(at_ + 4, length));
  at_ += 4 + length;
  if (at_ == buffer_.size() || at_ > 65536) {
    buffer_.erase(0, at_);
    at_ = 0;
  }
  return frame;
}

std::string textOf(const nlohmann::json& frame, const char* name) {
  const auto field = frame.find(name);
  if (field == frame.end() || !field->is_string()) {
    throw std::runtime_error(std::string("a frame lacks the text '") + name + "'");
  }
  return field->get<std::string>();
}

long long numberOf(const nlohmann::json& frame, const char* name) {
  const auto field = frame.find(name);
  if (field == frame.end() || !field->is_number_integer()) {
    throw std::runtime_error(std::string("a frame lacks the number '") + name + "'");
  }
  return field->get<long long>();
}

}  // namespace agent
