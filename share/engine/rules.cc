#include "share/engine/rules.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

namespace engine {

namespace {

constexpr std::string_view kWildcards = "*?[";

using Classifier = int (*)(int);
constexpr std::pair<std::string_view, Classifier> kNamedClasses[] = {
    {"alnum", std::isalnum}, {"alpha", std::isalpha}, {"blank", std::isblank},
    {"cntrl", std::iscntrl}, {"digit", std::isdigit}, {"graph", std::isgraph},
    {"lower", std::islower}, {"print", std::isprint}, {"punct", std::ispunct},
    {"space", std::isspace}, {"upper", std::isupper}, {"xdigit", std::isxdigit}};

enum class InClass { kYes, kNo, kBroken };

// One "[...]", from behind its bracket. On Yes and No the pattern has moved on to
// what is behind it.
class ClassReader {
 public:
  ClassReader(std::string_view& pattern, char wanted)
      : pattern_(pattern), wanted_(static_cast<unsigned char>(wanted)) {}

  InClass read() {
    const bool negated = !pattern_.empty() && (pattern_[0] == '!' || pattern_[0] == '^');
    if (negated) take();
    bool first = true;
    while (true) {
      if (pattern_.empty()) return InClass::kBroken;
      if (pattern_[0] == ']' && !first) break;
      if (!readMember()) return InClass::kBroken;
      first = false;
    }
    take();
    return found_ != negated ? InClass::kYes : InClass::kNo;
  }

 private:
  unsigned char take() {
    const auto c = static_cast<unsigned char>(pattern_[0]);
    pattern_.remove_prefix(1);
    return c;
  }

  bool takeEscaped(unsigned char& c) {
    c = take();
    if (c != '\\') return true;
    if (pattern_.empty()) return false;
    c = take();
    return true;
  }

  bool readMember() {
    if (pattern_.substr(0, 2) == "[:") return readNamed();
    unsigned char low = 0;
    if (!takeEscaped(low)) return false;
    unsigned char high = low;
    if (pattern_.size() > 1 && pattern_[0] == '-' && pattern_[1] != ']') {
      take();
      if (!takeEscaped(high)) return false;
    }
    // Also of a range that is the wrong way round, the first byte counts.
    found_ = found_ || wanted_ == low || (low < wanted_ && wanted_ <= high);
    return true;
  }

  bool readNamed() {
    const size_t end = pattern_.find(']', 2);
    if (end == std::string_view::npos) return false;
    if (end < 3 || pattern_[end - 1] != ':') {  // a plain "[" after all
      found_ = found_ || wanted_ == '[';
      take();
      return true;
    }
    const std::string_view name = pattern_.substr(2, end - 3);
    for (const auto& [known, classifier] : kNamedClasses) {
      if (name != known) continue;
      found_ = found_ || classifier(wanted_) != 0;
      pattern_.remove_prefix(end + 1);
      return true;
    }
    return false;
  }

  std::string_view& pattern_;
  unsigned char wanted_;
  bool found_ = false;
};

// What a run of asterisks leaves of the text: every rest that it may.
bool starMatches(std::string_view pattern, std::string_view text, bool anySlash, int depth);

bool matchHere(std::string_view pattern, std::string_view text, int depth) {
  while (!pattern.empty()) {
    const char c = pattern[0];
    if (c == '*') {
      size_t stars = 1;
      while (stars < pattern.size() && pattern[stars] == '*') ++stars;
      return starMatches(pattern.substr(stars), text, stars > 1, depth);
    }
    if (text.empty()) return false;
    if (c == '?') {
      if (text[0] == '/') return false;
      pattern.remove_prefix(1);
    } else if (c == '[') {
      std::string_view rest = pattern.substr(1);
      if (text[0] == '/' || ClassReader(rest, text[0]).read() != InClass::kYes) return false;
      pattern = rest;
    } else {
      if (c == '\\') {
        pattern.remove_prefix(1);
        if (pattern.empty()) return false;
      }
      if (pattern[0] != text[0]) return false;
      pattern.remove_prefix(1);
    }
    text.remove_prefix(1);
  }
  return text.empty();
}

bool starMatches(std::string_view pattern, std::string_view text, bool anySlash, int depth) {
  constexpr int kDeepest = 64;  // more asterisks than any sensible pattern has
  if (depth > kDeepest) return false;
  while (true) {
    if (matchHere(pattern, text, depth + 1)) return true;
    if (text.empty() || (!anySlash && text[0] == '/')) return false;
    text.remove_prefix(1);
  }
}

// The last names of a path, with so many slashes between them.
std::optional<std::string_view> lastNames(std::string_view path, size_t slashes) {
  size_t from = path.size();
  for (size_t left = slashes + 1; left > 0; --left) {
    from = from == 0 ? std::string_view::npos : path.rfind('/', from - 1);
    if (from == std::string_view::npos) return left == 1 ? std::optional(path) : std::nullopt;
  }
  return path.substr(from + 1);
}

}  // namespace

bool wildcardMatches(std::string_view pattern, std::string_view text) {
  return matchHere(pattern, text, 0);
}

bool Rules::understands(std::string_view pattern) {
  if (pattern.empty() || pattern[0] == '!' || pattern.find('\0') != std::string_view::npos)
    return false;
  if (pattern.size() > 1 && (pattern[0] == '+' || pattern[0] == '-') &&
      (pattern[1] == ' ' || pattern[1] == '_'))
    return false;
  return pattern.find_first_not_of('/') != std::string_view::npos;
}

Rules::Rule Rules::parse(std::string_view pattern) {
  Rule rule;
  if (pattern.size() > 1 && pattern.back() == '/') {
    rule.directoryOnly = true;
    pattern.remove_suffix(1);
  }
  if (!pattern.empty() && pattern.front() == '/') {
    rule.anchored = true;
    pattern.remove_prefix(1);
  }
  rule.wild = pattern.find_first_of(kWildcards) != std::string_view::npos;
  rule.anyDepth = pattern.find("**") != std::string_view::npos;
  rule.withContents = pattern.size() > 3 && pattern.substr(pattern.size() - 3) == "***";
  rule.pattern = pattern;
  return rule;
}

Rules::Rules(const std::vector<std::string>& patterns) : patterns_(patterns) {
  for (const std::string& pattern : patterns) rules_.push_back(parse(pattern));
}

bool Rules::matchesPath(const Rule& rule, std::string_view pattern, std::string_view path) {
  const auto matchesThis = [&](std::string_view text) {
    return rule.wild ? wildcardMatches(pattern, text) : pattern == text;
  };
  if (rule.anchored) return matchesThis(path);
  if (!rule.anyDepth) {
    const auto slashes = static_cast<size_t>(std::count(pattern.begin(), pattern.end(), '/'));
    const std::optional<std::string_view> names = lastNames(path, slashes);
    return names && matchesThis(*names);
  }
  // To "**" the top is a slash in front of the path.
  if (pattern.substr(0, 2) == "**" && matchesThis("/" + std::string(path))) return true;
  while (true) {
    if (matchesThis(path)) return true;
    const size_t slash = path.find('/');
    if (slash == std::string_view::npos) return false;
    path.remove_prefix(slash + 1);
  }
}

bool Rules::matches(const Rule& rule, std::string_view path, bool directory) {
  if (rule.directoryOnly && !directory) return false;
  if (matchesPath(rule, rule.pattern, path)) return true;
  return rule.withContents && directory && matchesPath(rule, rule.pattern, std::string(path) + "/");
}

bool Rules::excludes(std::string_view path, bool directory) const {
  for (const Rule& rule : rules_)
    if (matches(rule, path, directory)) return true;
  return false;
}

}  // namespace engine
