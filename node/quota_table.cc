#include "node/quota_table.h"

#include <limits>

#include "host/error.h"
#include "host/text.h"
#include "node/host.h"

namespace node {
namespace {

constexpr char kGraceTitle[] = "User/group grace times";
constexpr char kObjectsTitle[] = "User/group objects";
constexpr std::array kKindNames{"user", "group"};
constexpr size_t kGraceWords = 3;
constexpr size_t kObjectWords = 10;

using Words = std::vector<std::string_view>;

class Parser {
 public:
  QuotaTable parse(std::string_view text) {
    for (std::string_view line : splitLines(text)) {
      ++line_;
      const Words words = splitWords(line);
      if (words.empty() || words[0].starts_with('#')) continue;
      if (line == kGraceTitle) {
        section_ = Section::kGrace;
      } else if (line == kObjectsTitle) {
        section_ = Section::kObjects;
      } else if (section_ == Section::kGrace) {
        readGrace(words);
      } else if (section_ == Section::kObjects) {
        readObject(words);
      } else {
        refuse("text before the first section");
      }
    }
    return std::move(table_);
  }

 private:
  enum class Section { kNone, kGrace, kObjects };

  [[noreturn]] void refuse(const char* why) const {
    fail(ExitCode::kBadConfig, "line %zu: %s", line_, why);
  }

  QuotaKind kind(const Words& words, size_t expected) const {
    if (words.size() != expected) refuse("wrong number of words");
    if (words[0] == kKindNames[0]) return QuotaKind::kUser;
    if (words[0] == kKindNames[1]) return QuotaKind::kGroup;
    refuse("'user' or 'group' expected");
  }

  uint64_t number(std::string_view word) const {
    const std::optional<uint64_t> value = parseDecimal(word);
    if (!value) refuse("decimal number expected");
    return *value;
  }

  void readGrace(const Words& words) {
    const QuotaKind which = kind(words, kGraceWords);  // Before any word is taken.
    table_.of(which).grace = {number(words[1]), number(words[2])};
  }

  void readObject(const Words& words) {
    const QuotaKind which = kind(words, kObjectWords);
    const uint64_t id = number(words[1]);
    if (id > std::numeric_limits<uint32_t>::max()) refuse("the id is out of range");
    table_.of(which).objects[static_cast<uint32_t>(id)] = {
        {number(words[2]), number(words[3]), number(words[4]), number(words[5])},
        {number(words[6]), number(words[7]), number(words[8]), number(words[9])}};
  }

  QuotaTable table_;
  Section section_ = Section::kNone;
  size_t line_ = 0;
};

void append(std::string& text, const QuotaLine& line) {
  for (const uint64_t value : {line.used, line.soft, line.hard, line.grace}) {
    text += ' ';
    text += std::to_string(value);
  }
}

}  // namespace

std::string formatQuotaTable(const QuotaTable& table) {
  std::string text = textf("%s\n# kind block-grace inode-grace\n", kGraceTitle);
  for (size_t i = 0; i < table.kinds.size(); ++i) {
    const QuotaGrace& grace = table.kinds[i].grace;
    text += kKindNames[i];
    text += " " + std::to_string(grace.blocks) + " " + std::to_string(grace.inodes) + "\n";
  }
  text += textf(
      "%s\n# kind id block-used block-soft block-hard block-grace"
      " inode-used inode-soft inode-hard inode-grace\n",
      kObjectsTitle);
  for (size_t i = 0; i < table.kinds.size(); ++i) {
    for (const auto& [id, object] : table.kinds[i].objects) {
      if (!object.limited()) continue;
      text += kKindNames[i];
      text += " " + std::to_string(id);
      append(text, object.blocks);
      append(text, object.inodes);
      text += '\n';
    }
  }
  return text;
}

QuotaTable parseQuotaTable(std::string_view text) { return Parser().parse(text); }

}  // namespace node
