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
constexpr std::array kKinds{QuotaKind::kUser, QuotaKind::kGroup};
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
    const QuotaObject object{
        {number(words[2]), number(words[3]), number(words[4]), number(words[5])},
        {number(words[6]), number(words[7]), number(words[8]), number(words[9])}};
    auto& objects = table_.of(which).objects;
    objects[static_cast<uint32_t>(id)] = object;
    if (!object.limited()) objects.erase(static_cast<uint32_t>(id));
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

const char* nameOf(QuotaKind kind) { return kKindNames.at(static_cast<size_t>(kind)); }

std::string graceLine(QuotaKind kind, const QuotaGrace& grace) {
  return textf("%s %llu %llu\n", nameOf(kind), static_cast<unsigned long long>(grace.blocks),
               static_cast<unsigned long long>(grace.inodes));
}

}  // namespace

std::string formatQuotaTable(const QuotaTable& table) {
  std::string text = textf("%s\n# kind block-grace inode-grace\n", kGraceTitle);
  for (const QuotaKind kind : kKinds) text += graceLine(kind, table.of(kind).grace);
  text += textf(
      "%s\n# kind id block-used block-soft block-hard block-grace"
      " inode-used inode-soft inode-hard inode-grace\n",
      kObjectsTitle);
  for (const QuotaKind kind : kKinds) {
    for (const auto& [id, object] : table.of(kind).objects) {
      if (object.limited()) text += quotaObjectLine(kind, id, object);
    }
  }
  return text;
}

std::string emptyQuotaTable() { return formatQuotaTable({}); }

std::string quotaObjectLine(QuotaKind kind, uint32_t id, const QuotaObject& object) {
  std::string text = nameOf(kind);
  text += " " + std::to_string(id);
  append(text, object.blocks);
  append(text, object.inodes);
  return text + "\n";
}

std::string quotaGraceLines(QuotaKind kind, const QuotaGrace& grace) {
  // Objects may follow, as they do behind a whole table.
  return textf("%s\n%s%s\n", kGraceTitle, graceLine(kind, grace).c_str(), kObjectsTitle);
}

QuotaTable parseQuotaTable(std::string_view text) { return Parser().parse(text); }

}  // namespace node
