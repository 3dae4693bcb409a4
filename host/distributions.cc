#include "host/distributions.h"

#include <algorithm>
#include <cerrno>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"

namespace host {
namespace {

constexpr std::string_view kLineEnds = "\r\n";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kAssigns = "=:";
constexpr std::string_view kNameCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-";
/// Of a name or a value with the blanks around it.
constexpr size_t kLongest = 4095;

const std::string& directory() {
  static const std::string path = std::string(kConfigDir) + "/dists/";
  return path;
}

std::string_view stripped(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

class TableReader {
 public:
  explicit TableReader(std::string_view text) : text_(text) {}

  Table read() {
    for (;;) {
      at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
      if (at_ == text_.size()) return std::move(table_);
      if (text_[at_] == '#') {
        at_ = std::min(text_.find_first_of(kLineEnds, at_), text_.size());
      } else if (text_[at_] == '[') {
        ++at_;
        readHeader();
      } else {
        readOption();
      }
    }
  }

 private:
  /// What stands before `end`, npos being the end of the text; goes there.
  std::string_view take(size_t end) {
    const std::string_view taken = text_.substr(at_, end == text_.npos ? end : end - at_);
    if (taken.size() > kLongest) refuse("too long a name or value");
    at_ += taken.size();
    return taken;
  }
  std::string_view takeName() { return take(text_.find_first_not_of(kNameCharacters, at_)); }
  void skipBlanks() { at_ = std::min(text_.find_first_not_of(kBlanks, at_), text_.size()); }
  bool isAt(std::string_view characters) const {
    return at_ < text_.size() && characters.find(text_[at_]) != characters.npos;
  }

  [[noreturn]] void refuse(const char* why) const {
    const std::string_view before = text_.substr(0, at_);
    fail(ExitCode::kBadConfig, "line %td: %s", std::count(before.begin(), before.end(), '\n') + 1,
         why);
  }

  void readHeader() {
    skipBlanks();
    const std::string_view name = takeName();
    if (name.empty()) refuse("the name of a section expected behind '['");
    skipBlanks();
    if (!isAt("]")) refuse("']' expected");
    ++at_;
    section_ = name;
  }

  void readOption() {
    const std::string_view name = takeName();
    if (name.empty()) refuse("NAME=value expected");
    skipBlanks();
    if (!isAt(kAssigns)) refuse("'=' or ':' expected");
    ++at_;
    table_[{section_, std::string(name)}] = stripped(take(text_.find_first_of(kLineEnds, at_)));
  }

  std::string_view text_;
  size_t at_ = 0;
  std::string section_ = "GLOBAL";
  Table table_;
};

}  // namespace

Table parseTable(std::string_view text) { return TableReader(text).read(); }

std::pair<std::string, std::string> splitDistribution(std::string_view text) {
  const size_t dash = text.rfind('-');
  if (dash == text.npos || dash == 0 || dash + 1 == text.size()) return {std::string(text), ""};
  return {std::string(text.substr(0, dash)), std::string(text.substr(dash + 1))};
}

std::string distributionFile(const std::string& name) {
  // Names of templates begin with a dot, which the table's do not have.
  return directory() + (name.starts_with('.') ? name.substr(1) : name) + ".conf";
}

Distribution findDistribution(std::string_view text) {
  for (const std::string& name : {std::string(text), splitDistribution(text).first}) {
    if (name.empty() || name.find('/') != name.npos) continue;
    const std::string path = distributionFile(name);
    const std::optional<std::string> content = readFile(path);
    if (!content && errno == ENOENT) continue;
    if (!content) failErrno("cannot read %s", path.c_str());
    try {
      const Table table = parseTable(*content);
      const auto found = table.find({"GLOBAL", "POST_MIGRATE"});
      const std::string script = found == table.end() ? "" : found->second;
      return {path, script.empty() ? "" : directory() + "scripts/" + script};
    } catch (const Error& error) {
      fail(error.code(), "%s: %s", path.c_str(), error.what());
    }
  }
  return {};
}

std::vector<std::string> knownDistributions() {
  std::vector<std::string> names;
  if (!isDirectory(directory())) return names;
  for (const std::string& name : listDirectory(directory())) {
    if (name.ends_with(".conf")) names.push_back(name.substr(0, name.size() - 5));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace host
