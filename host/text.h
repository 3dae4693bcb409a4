// Texts: printf into a string, numbers, words and lines.
#ifndef QX_HOST_TEXT_H
#define QX_HOST_TEXT_H

#include <cstdarg>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The text that printf would print.
std::string textf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string vtextf(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

/// The number that `text` spells in decimal digits and nothing else; nothing
/// when it is empty, holds any other character or does not fit 64 bits.
std::optional<uint64_t> parseDecimal(std::string_view text);

/// The words of `text`, which blanks, tabs and line ends separate.
std::vector<std::string_view> splitWords(std::string_view text);

/// The words with `between` between them.
template <class Range>
std::string joined(const Range& words, std::string_view between = " ") {
  std::string text;
  for (const auto& word : words) {
    if (!text.empty()) text += between;
    text += word;
  }
  return text;
}

/// The lines of `text` without their line ends. A last line may lack one.
std::vector<std::string_view> splitLines(std::string_view text);

}  // namespace host

#endif
