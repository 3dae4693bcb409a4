#include "agent/wire/base64.h"

namespace agent {

namespace {
constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}

std::string encodeBase64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    unsigned group = 0;
    for (size_t k = 0; k < 3; ++k) {
      group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    }
    for (size_t k = 0; k < 4; ++k) {
      text += k <= count ? kAlphabet[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return text;
}

std::optional<std::string> decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    size_t count = 4;
    if (last && text[i + 3] == '=') count = text[i + 2] == '=' ? 2 : 3;
    unsigned group = 0;
    for (size_t k = 0; k < 4; ++k) {
      size_t value = 0;
      if (k < count) {
        value = kAlphabet.find(text[i + k]);
        if (value == std::string_view::npos) return std::nullopt;
      }
      group = group << 6 | static_cast<unsigned>(value);
    }
    // Bits beyond the last byte must be clear, so that a text has one meaning.
    if ((count == 2 && (group & 0xffff)) || (count == 3 && (group & 0xff))) return std::nullopt;
    for (size_t k = 0; k + 1 < count; ++k) bytes += static_cast<char>(group >> (16 - 8 * k) & 255);
  }
  return bytes;
}

}  // namespace agent
