#include "host/text.h"

#include <charconv>
#include <cstdio>

namespace host {

std::string vtextf(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  // The terminating null may be written: a string's data has room for one.
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

std::string textf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = vtextf(format, arguments);
  va_end(arguments);
  return text;
}

std::optional<uint64_t> parseDecimal(std::string_view text) {
  uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || rest != end) return std::nullopt;
  return value;
}

std::vector<std::string_view> splitWords(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  std::vector<std::string_view> words;
  size_t at = 0;
  while ((at = text.find_first_not_of(kBlanks, at)) != text.npos) {
    const size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return lines;
}

}  // namespace host
