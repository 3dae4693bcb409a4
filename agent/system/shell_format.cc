#include "agent/system/shell_format.h"

#include <cctype>

#include "agent/system/last_error.h"

namespace agent {

namespace {

bool isNameStart(char c) { return isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool isNamePart(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// Characters that would make a bare value more than a word.
constexpr std::string_view notBare = "\"'`$\\;&|<>()*?[]{}~#! \t\r\n";

// Reads the value that begins at `at`, up to the end of its line; moves `at`
// behind it. False when the value is not one word.
bool readValue(const std::string& text, size_t& at, std::string& value) {
  value.clear();
  while (at < text.size() && text[at] != '\n' && !isBlank(text[at])) {
    const char quote = text[at];
    if (quote == '\'') {
      const size_t end = text.find('\'', at + 1);
      if (end == std::string::npos) return false;
      for (const char c : text.substr(at + 1, end - at - 1)) {
        // Nothing is expanded here, so "$" must not look as if it were.
        if (c == '$') value += '\\';
        value += c;
      }
      at = end + 1;
    } else if (quote == '"') {
      ++at;
      for (;; ++at) {
        if (at >= text.size()) return false;
        if (text[at] == '"') break;
        if (text[at] == '`') return false;
        if (text[at] == '\\' && at + 1 < text.size()) {
          const char next = text[at + 1];
          if (next == '"' || next == '\\' || next == '`') {
            value += next;
            ++at;
            continue;
          }
          if (next == '$') {
            value += "\\$";
            ++at;
            continue;
          }
        }
        if (text[at] == '$' && at + 1 < text.size() && text[at + 1] == '(') return false;
        value += text[at];
      }
      ++at;
    } else if (quote == '$' && at + 1 < text.size() &&
               (isNameStart(text[at + 1]) || text[at + 1] == '{')) {
      value += text[at++];
      while (at < text.size() && (isNamePart(text[at]) || text[at] == '{' || text[at] == '}')) {
        value += text[at++];
      }
    } else if (notBare.find(quote) != std::string_view::npos) {
      return false;
    } else {
      value += text[at++];
    }
  }
  while (at < text.size() && isBlank(text[at])) ++at;
  if (at < text.size() && text[at] == '#') {
    while (at < text.size() && text[at] != '\n') ++at;
  }
  return at >= text.size() || text[at] == '\n';
}

}  // namespace

int parseShell(const std::string& text, ShellVariables& variables) {
  variables.clear();
  size_t at = 0;
  for (int line = 1; at < text.size(); ++line) {
    const size_t start = at;
    const auto refuse = [&]() {
      const std::string shown = text.substr(start, text.find('\n', start) - start);
      return fail("line " + std::to_string(line) + " is not an assignment: '" + shown + "'");
    };
    while (at < text.size() && isBlank(text[at])) ++at;
    if (at >= text.size()) break;
    if (text[at] == '\n') {
      ++at;
      continue;
    }
    if (text[at] == '#') {
      at = text.find('\n', at);
      if (at == std::string::npos) break;
      ++at;
      continue;
    }
    if (text.compare(at, 7, "export ") == 0) at += 7;
    std::string name;
    if (at < text.size() && isNameStart(text[at])) {
      while (at < text.size() && isNamePart(text[at])) name += text[at++];
    }
    if (name.empty() || at >= text.size() || text[at] != '=') return refuse();
    ++at;
    std::string value;
    if (!readValue(text, at, value)) return refuse();
    // A quoted value may run over several lines.
    for (size_t i = start; i < at && i < text.size(); ++i) line += text[i] == '\n';
    variables[name] = value;
    ++at;
  }
  return 0;
}

std::string shellAssignment(const std::string& name, const std::string& value) {
  std::string line = name + "=\"";
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (c == '\\' && i + 1 < value.size() && value[i + 1] == '$') {
      line += "\\$";
      ++i;
    } else {
      if (c == '"' || c == '\\' || c == '`') line += '\\';
      line += c;
    }
  }
  return line + "\"\n";
}

std::string formatShell(const ShellVariables& variables) {
  std::string text;
  for (const auto& [name, value] : variables) text += shellAssignment(name, value);
  return text;
}

}  // namespace agent
