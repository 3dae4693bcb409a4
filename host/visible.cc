#include "host/visible.h"

#include <cstdint>
#include <cstdio>

namespace host {
namespace {

struct Character {
  char32_t code = 0;
  size_t bytes = 0;  // 0: no character begins here
};

// The character that begins at `at` (RFC 3629: no overlong forms, no surrogates).
Character characterAt(std::string_view text, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(at);
  if (first < 0x80) return {first, 1};
  size_t bytes;
  char32_t code, smallest;
  if (first >= 0xc2 && first <= 0xdf) {
    bytes = 2, code = first & 0x1fu, smallest = 0x80;
  } else if (first >= 0xe0 && first <= 0xef) {
    bytes = 3, code = first & 0x0fu, smallest = 0x800;
  } else if (first >= 0xf0 && first <= 0xf4) {
    bytes = 4, code = first & 0x07u, smallest = 0x10000;
  } else {
    return {};
  }
  if (text.size() - at < bytes) return {};
  for (size_t i = 1; i < bytes; ++i) {
    if ((byte(at + i) & 0xc0) != 0x80) return {};
    code = code << 6 | (byte(at + i) & 0x3fu);
  }
  if (code < smallest || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return {};
  return {code, bytes};
}

struct Range {
  char32_t first, last;
};

// Characters that are not seen, or make others seen elsewhere (Unicode: general
// category Cf and line and paragraph separators, variation selectors, non-characters).
constexpr Range kInvisible[] = {
    {0x00ad, 0x00ad}, {0x034f, 0x034f},   {0x061c, 0x061c},   {0x115f, 0x1160}, {0x17b4, 0x17b5},
    {0x180b, 0x180f}, {0x200b, 0x200f},   {0x2028, 0x202e},   {0x2060, 0x206f}, {0x3164, 0x3164},
    {0xe000, 0xf8ff}, {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},   {0xffa0, 0xffa0}, {0xfff0, 0xfffb},
    {0xfffe, 0xffff}, {0x1d173, 0x1d17a}, {0xe0000, 0x10ffff}};

bool isInvisible(char32_t code) {
  for (const Range& range : kInvisible) {
    if (code >= range.first && code <= range.last) return true;
  }
  return false;
}

std::string escapedByte(unsigned char byte) {
  char text[8];
  snprintf(text, sizeof text, "\\x%02x", byte);
  return text;
}

std::string escapedCharacter(char32_t code) {
  if (code == '\n') return "\\n";
  if (code == '\r') return "\\r";
  if (code < 0xa0) return escapedByte(static_cast<unsigned char>(code));
  char text[16];
  snprintf(text, sizeof text, "\\u{%x}", static_cast<unsigned>(code));
  return text;
}

}  // namespace

std::string visibleLine(std::string_view text, size_t longest) {
  std::string line;
  for (size_t at = 0; at < text.size();) {
    const Character found = characterAt(text, at);
    std::string piece;
    if (found.bytes == 0) {
      piece = escapedByte(static_cast<unsigned char>(text[at]));
    } else if (found.code == '\t') {
      piece = " ";
    } else if (found.code < 0x20 || (found.code >= 0x7f && found.code < 0xa0) ||
               isInvisible(found.code)) {
      piece = escapedCharacter(found.code);
    } else {
      piece = text.substr(at, found.bytes);
    }
    if (line.size() + piece.size() > longest) return line + "...";
    line += piece;
    at += found.bytes == 0 ? 1 : found.bytes;
  }
  return line;
}

std::string visibleLines(std::string_view text, std::string_view indent, size_t most,
                         size_t longest) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  std::string lines;
  for (size_t count = 0; count == 0 || !text.empty(); ++count) {
    if (count != 0) lines += "\n" + std::string(indent);
    if (count == most) return lines + "(more is left out)";
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines += visibleLine(line, longest);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return lines;
}

}  // namespace host
