#include "quota/quota_report.h"

#include <cstdlib>

#include "expand/strings.h"
#include "quota/grace.h"

namespace QuotaMgmt {

namespace {

constexpr char kBlanks[] = " \t";
constexpr char kDigits[] = "0123456789";

bool contains(const std::string& line, const char* text) {
  return line.find(text) != std::string::npos;
}

// Walks the values of one line of a report.
class DataLine {
 public:
  explicit DataLine(const std::string& line) : line_(line) {}

  // The id, right after the "#" that begins the line.
  unsigned id() const {
    return static_cast<unsigned>(std::strtoul(line_.c_str() + 1, nullptr, 10));
  }

  // Goes to the next blank and from there to the next digit, and reads the number
  // there; 0 when the line has no more.
  unsigned long long nextNumber() {
    toNext(kBlanks);
    toNext(kDigits);
    return at_ == std::string::npos
               ? 0
               : static_cast<unsigned long long>(std::strtoll(line_.c_str() + at_, nullptr, 10));
  }

  // Goes to the next token that begins with a digit. False when there is none.
  bool toNextToken() {
    do {
      toNext(kBlanks);
      if (at_ != std::string::npos) at_ = line_.find_first_not_of(kBlanks, at_);
      if (at_ == std::string::npos) return false;
    } while (std::string(kDigits).find(line_[at_]) == std::string::npos);
    return true;
  }

  // The token here, up to the next blank; toNextToken must have found one.
  std::string token() const {
    const std::size_t end = line_.find_first_of(kBlanks, at_);
    return line_.substr(at_, end == std::string::npos ? end : end - at_);
  }

 private:
  void toNext(const char* characters) {
    if (at_ != std::string::npos) at_ = line_.find_first_of(characters, at_);
  }

  const std::string& line_;
  std::size_t at_ = 0;
};

Quota parseLimits(DataLine& line) {
  Quota quota;
  line.nextNumber();  // blocks used
  quota.blockSoft = line.nextNumber();
  quota.blockHard = line.nextNumber();
  // Only an id over its soft limit has a grace column; it is told from the files
  // used, which follow it, by what stands after the digits.
  if (line.toNextToken()) {
    const std::string token = line.token();
    if (token.find_first_not_of(kDigits) != std::string::npos) {
      quota.blockGrace = grace_atoll(token.c_str());
      line.nextNumber();  // files used
    }
  }
  quota.inodeSoft = line.nextNumber();
  quota.inodeHard = line.nextNumber();
  if (line.toNextToken()) quota.inodeGrace = grace_atoll(line.token().c_str());
  return quota;
}

// The text between a label and the next ";" or the end of the line, without the
// blanks around it; empty when the label is not there.
std::string labelled(const std::string& line, const std::string& label) {
  const std::size_t at = line.find(label);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + label.size();
  const std::size_t end = line.find(';', begin);
  std::string text = line.substr(begin, end == std::string::npos ? end : end - begin);
  Expand::strip(text);
  return text;
}

}  // namespace

int limits_parse_phys(const std::string& report, Quotas* users, Quotas* groups) {
  Quotas* target = nullptr;
  bool heading = true;
  for (const std::string& line : Expand::split("\n", report, 0)) {
    if (line.empty() || line[0] != '#') heading = true;
    if (!heading) {
      if (!target) continue;
      DataLine data(line);
      target->entries[data.id()] = parseLimits(data);
    } else if (contains(line, "user quotas")) {
      target = users;
    } else if (contains(line, "group quotas")) {
      target = groups;
    } else if (!line.empty() && line[0] == '-') {
      heading = false;
    } else if (target && contains(line, "Block grace time:")) {
      target->blockGrace = grace_atoll(labelled(line, "Block grace time:").c_str());
      target->inodeGrace = grace_atoll(labelled(line, "Inode grace time:").c_str());
    }
  }
  return 0;
}

int graces_parse_phys(const std::string& text, Quotas* users, Quotas* groups) {
  Quotas* target = nullptr;
  bool titles = false;  // the column titles have been seen; file systems follow
  for (std::string line : Expand::split("\n", text, 0)) {
    if (contains(line, "limits for users")) {
      target = users;
      titles = false;
    } else if (contains(line, "limits for groups")) {
      target = groups;
      titles = false;
    } else if (contains(line, "Filesystem")) {
      titles = true;
    } else if (target && titles) {
      Expand::collapse(line);
      const std::vector<std::string> fields = Expand::split(" ", line, 0);
      if (fields.size() < 3) continue;
      target->blockGrace = grace_atoll(fields[1].c_str());
      target->inodeGrace = grace_atoll(fields[2].c_str());
    }
  }
  return 0;
}

}  // namespace QuotaMgmt
