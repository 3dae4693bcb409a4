#include "host/shell_vars.h"

#include <algorithm>
#include <cerrno>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"
#include "host/visible.h"

namespace host {
namespace {

bool isNameStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isNameChar(char c) { return isNameStart(c) || (c >= '0' && c <= '9'); }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

const std::string* valueIn(const ShellVars& vars, const std::string& name) {
  const auto found = vars.find(name);
  return found == vars.end() ? nullptr : &found->second;
}

/// Of a line that is no assignment.
constexpr size_t kShownBytes = 80;

class Reader {
 public:
  Reader(std::string_view text, const ShellVars& known) : text_(text), known_(known) {}

  ShellVars read() {
    for (;;) {
      skipBlanks();
      if (atEnd()) return std::move(vars_);
      if (peek() == '\n') {
        ++at_;
      } else if (peek() == '#') {
        skipComment();
      } else {
        readAssignment();
      }
    }
  }

 private:
  bool atEnd() const { return at_ >= text_.size(); }
  char peek(size_t ahead = 0) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }
  void skipBlanks() {
    while (!atEnd() && isBlank(peek())) ++at_;
  }
  void skipComment() {
    while (!atEnd() && peek() != '\n') ++at_;
  }

  [[noreturn]] void refuse(const std::string& why) const {
    size_t line = 1;
    for (char c : text_.substr(0, std::min(at_, text_.size()))) line += c == '\n';
    fail(ExitCode::kBadConfig, "line %zu: %s", line, why.c_str());
  }

  std::string readName() {
    std::string name;
    if (isNameStart(peek())) {
      while (isNameChar(peek())) name += text_[at_++];
    }
    return name;
  }

  /// What is left of the line, as it can be shown.
  std::string restOfLine() const {
    return visibleLine(text_.substr(at_, text_.find('\n', at_) - at_), kShownBytes);
  }

  void readAssignment() {
    const size_t start = at_;
    std::string name = readName();
    if (name == "export" && isBlank(peek())) {
      skipBlanks();
      name = readName();
    }
    if (name.empty() || peek() != '=') {
      at_ = start;
      refuse("NAME=value expected instead of '" + restOfLine() + "'");
    }
    ++at_;
    const std::string value = readValue();
    skipBlanks();
    if (peek() == '#') skipComment();
    if (!atEnd() && peek() != '\n') refuse("unexpected text after the value of " + name);
    vars_[name] = value;
  }

  std::string readValue() {
    std::string value;
    while (!atEnd() && !isBlank(peek()) && peek() != '\n') {
      const char c = peek();
      switch (c) {
        case '\'':
          readSingleQuoted(value);
          break;
        case '"':
          readDoubleQuoted(value);
          break;
        case '\\':
          ++at_;
          if (atEnd()) refuse("backslash at the end of the text");
          if (peek() != '\n') value += peek();
          ++at_;
          break;
        case '$':
          if (peek(1) == '\'' || peek(1) == '"') refuse("this kind of quoting is not supported");
          readReference(value);
          break;
        case '`':
          refuse("commands are not run here: '`' must be quoted");
        case '|':
        case '&':
        case ';':
        case '<':
        case '>':
        case '(':
        case ')':
          refuse(std::string("'") + c + "' must be quoted");
        case '\0':
          refuse("null byte");
        case '~':
          // As in PATH=/bin:~/bin.
          if (value.empty() || value.back() == ':') {
            refuse("'~' is not expanded here: quote it or write the path in full");
          }
          [[fallthrough]];
        default:
          value += c;
          ++at_;
      }
    }
    return value;
  }

  void readSingleQuoted(std::string& value) {
    const size_t end = text_.find('\'', at_ + 1);
    if (end == text_.npos) refuse("the closing ' is missing");
    value += text_.substr(at_ + 1, end - at_ - 1);
    if (value.find('\0') != value.npos) refuse("null byte");
    at_ = end + 1;
  }

  void readDoubleQuoted(std::string& value) {
    const size_t start = at_++;
    for (;;) {
      if (atEnd()) {
        at_ = start;
        refuse("the closing \" is missing");
      }
      const char c = peek();
      if (c == '"') {
        ++at_;
        return;
      }
      if (c == '\\' && std::string_view("$`\"\\\n").find(peek(1)) != std::string_view::npos &&
          at_ + 1 < text_.size()) {
        if (peek(1) != '\n') value += peek(1);
        at_ += 2;
      } else if (c == '$') {
        readReference(value);
      } else if (c == '`') {
        refuse("commands are not run here: '`' must be written \\`");
      } else if (c == '\0') {
        refuse("null byte");
      } else {
        value += c;
        ++at_;
      }
    }
  }

  void readReference(std::string& value) {
    ++at_;
    const bool braces = peek() == '{';
    if (braces) ++at_;
    const std::string name = readName();
    if (name.empty() && !braces &&
        (atEnd() || isBlank(peek()) || peek() == '\n' || peek() == '"')) {
      value += '$';  // A lone dollar sign stands for itself, as in a shell.
      return;
    }
    if (name.empty() || (braces && peek() != '}')) {
      refuse("only $NAME and ${NAME} are expanded here; write \\$ for a dollar sign");
    }
    if (braces) ++at_;
    // A shell joins the lines first, and then reads a longer name.
    if (!braces && peek() == '\\' && peek(1) == '\n') {
      refuse("a name does not go on in the next line: write ${" + name + "}");
    }
    const std::string* found = valueIn(vars_, name);
    if (found == nullptr) found = valueIn(known_, name);
    if (found == nullptr) refuse("variable " + name + " is not set");
    value += *found;
  }

  std::string_view text_;
  const ShellVars& known_;
  size_t at_ = 0;
  ShellVars vars_;
};

}  // namespace

std::string valueOf(const ShellVars& vars, const std::string& name, const std::string& fallback) {
  const auto found = vars.find(name);
  return found == vars.end() || found->second.empty() ? fallback : found->second;
}

std::string shellQuoted(std::string_view value) {
  std::string quoted = "\"";
  for (const char c : value) {
    if (std::string_view("$`\"\\").find(c) != std::string_view::npos) quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

const ShellVars& idAsWritten() {
  static const ShellVars known{{"VEID", "$VEID"}};
  return known;
}

std::string formatShellVars(const ShellVars& vars) {
  std::string text;
  for (const auto& [name, value] : vars) {
    std::string quoted = shellQuoted(value);
    for (size_t at = 0; (at = quoted.find("\\$", at)) != quoted.npos; ++at) {
      const std::string_view rest = std::string_view(quoted).substr(at + 2);
      if (!rest.starts_with("VEID")) continue;
      const bool joined = rest.size() > 4 && isNameChar(rest[4]);
      quoted.replace(at, 6, joined ? "${VEID}" : "$VEID");
    }
    text += textf("%s=%s\n", name.c_str(), quoted.c_str());
  }
  return text;
}

ShellVars parseOwnShellVars(std::string_view text, const ShellVars& known) {
  return Reader(text, known).read();
}

ShellVars parseShellVars(std::string_view text, const ShellVars& known) {
  ShellVars vars = parseOwnShellVars(text, known);
  vars.insert(known.begin(), known.end());
  return vars;
}

std::optional<ShellVars> readOwnShellVars(const std::string& path, const ShellVars& known) {
  const std::optional<std::string> text = readFile(path);
  if (!text && errno == ENOENT) return std::nullopt;
  if (!text) failErrno("cannot read %s", path.c_str());
  try {
    return parseOwnShellVars(*text, known);
  } catch (const Error& error) {
    fail(error.code(), "%s: %s", path.c_str(), error.what());
  }
}

std::optional<ShellVars> readShellVars(const std::string& path, const ShellVars& known) {
  std::optional<ShellVars> vars = readOwnShellVars(path, known);
  if (vars) vars->insert(known.begin(), known.end());
  return vars;
}

}  // namespace host
