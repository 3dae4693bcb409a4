#include "expand/strings.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

namespace Expand {
namespace {

const char kBlanks[] = " \t\r\n";

// Of ASCII only, whatever the locale of the process.
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

void strip(std::string& s) {
  const std::size_t first = s.find_first_not_of(kBlanks);
  if (first == std::string::npos) {
    s.clear();
    return;
  }
  s.erase(s.find_last_not_of(kBlanks) + 1);
  s.erase(0, first);
}

void collapse(std::string& s) {
  strip(s);
  std::string collapsed;
  for (std::size_t at = 0; at < s.size();) {
    const std::size_t end = std::min(s.find_first_of(kBlanks, at), s.size());
    collapsed.append(s, at, end - at);
    at = std::min(s.find_first_not_of(kBlanks, end), s.size());
    if (at > end) collapsed += ' ';
  }
  s.swap(collapsed);
}

std::vector<std::string> split(const char* separators, const std::string& s, int limit) {
  std::vector<std::string> pieces;
  std::size_t at = 0;
  while (limit <= 0 || pieces.size() + 1 < static_cast<std::size_t>(limit)) {
    const std::size_t end = s.find_first_of(separators, at);
    if (end == std::string::npos) break;
    pieces.push_back(s.substr(at, end - at));
    at = end + 1;
  }
  pieces.push_back(s.substr(at));
  return pieces;
}

std::string join_argv(const char* const* argv) {
  const char* const* last = argv;
  while (*last != nullptr) ++last;
  return join(" ", argv, last);
}

void replace(std::string& s, const char* from, const char* to) {
  const std::size_t fromLength = std::strlen(from);
  const std::size_t toLength = std::strlen(to);
  if (fromLength == 0) return;
  for (std::size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + toLength)) {
    s.replace(at, fromLength, to);
  }
}

std::size_t icase_strstr(const std::string& hay, const std::string& needle) {
  const auto found = std::search(hay.begin(), hay.end(), needle.begin(), needle.end(),
                                 [](char a, char b) { return lower(a) == lower(b); });
  if (found == hay.end() && !needle.empty()) return std::string::npos;
  return static_cast<std::size_t>(found - hay.begin());
}

const char* btoa(bool b) { return b ? "true" : "false"; }

bool atob(const char* s) { return strcasecmp(s, "true") == 0; }

bool is_shell_word(const std::string& s) {
  for (const char c : s) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte == 0x7f || std::strchr("\"'`$\\;&|<>(){}!#", c) != nullptr)
      return false;
  }
  return !s.empty();
}

}  // namespace Expand
