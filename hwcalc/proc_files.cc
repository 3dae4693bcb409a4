#include "hwcalc/proc_files.h"

namespace hwcalc {

namespace {

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 16;
}

// Reads a text from left to right; once something did not fit, it stays failed.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

  std::uint64_t number(int base) {
    std::uint64_t value = 0;
    const char* first = at_;
    while (at_ != end_ && digitValue(*at_) < base) {
      value = value * static_cast<unsigned>(base) + static_cast<unsigned>(digitValue(*at_++));
    }
    if (at_ == first) failed_ = true;
    return value;
  }

  void expect(char c) {
    if (at_ == end_ || *at_ != c) {
      failed_ = true;
    } else {
      ++at_;
    }
  }

  // The next character is not "-".
  bool permitted() {
    if (at_ == end_) {
      failed_ = true;
      return false;
    }
    return *at_++ != '-';
  }

  // The next character is this one.
  bool is(char c) {
    if (at_ == end_) {
      failed_ = true;
      return false;
    }
    return *at_++ == c;
  }

  void skipBlanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\t')) ++at_;
  }

  bool failed() const { return failed_; }
  std::string_view rest() const { return {at_, static_cast<std::size_t>(end_ - at_)}; }

 private:
  const char* at_;
  const char* end_;
  bool failed_ = false;
};

// The next line, without its end, taken off the text.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

bool parseMapsLine(std::string_view line, MapsLine& result) {
  Scanner scanner(line);
  result.start = scanner.number(16);
  scanner.expect('-');
  const std::uint64_t end = scanner.number(16);
  scanner.expect(' ');
  result.flags = 0;
  if (scanner.permitted()) result.flags |= MAP_FLAG_READ;
  if (scanner.permitted()) result.flags |= MAP_FLAG_WRITE;
  if (scanner.permitted()) result.flags |= MAP_FLAG_EXECUTE;
  if (scanner.is('s')) result.flags |= MAP_FLAG_SHARED;
  scanner.expect(' ');
  result.offset = scanner.number(16);
  scanner.expect(' ');
  const std::uint64_t major = scanner.number(16);
  scanner.expect(':');
  const std::uint64_t minor = scanner.number(16);
  scanner.expect(' ');
  result.inode = scanner.number(10);
  if (scanner.failed() || end < result.start) return false;
  result.device = static_cast<std::uint32_t>(major << 20 | minor);
  result.pages = (end - result.start) / kMapsPageSize;
  return true;
}

// The number after a label; true when the line has the label.
bool readLabelled(std::string_view line, std::string_view label, std::uint32_t& value) {
  if (line.substr(0, label.size()) != label) return false;
  Scanner scanner(line.substr(label.size()));
  scanner.skipBlanks();
  value = static_cast<std::uint32_t>(scanner.number(10));
  return true;
}

}  // namespace

ProcStatus parseStatus(std::string_view text) {
  constexpr std::string_view kName = "Name:";
  ProcStatus status;
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    if (line.substr(0, kName.size()) == kName) {
      Scanner scanner(line.substr(kName.size()));
      scanner.skipBlanks();
      status.name = scanner.rest();
      continue;
    }
    if (readLabelled(line, "PPid:", status.parent)) continue;
    if (readLabelled(line, "VmRSS:", status.resident)) continue;
    readLabelled(line, "VmLck:", status.locked);
  }
  return status;
}

void parseMaps(std::string_view text, std::vector<MapsLine>& lines) {
  lines.clear();
  MapsLine line;
  while (!text.empty()) {
    if (parseMapsLine(takeLine(text), line)) lines.push_back(line);
  }
}

bool isProcessId(const char* name, std::uint32_t& id) {
  const std::string_view text(name);
  if (text.find_first_not_of("0123456789") != std::string_view::npos) return false;
  Scanner scanner(text);
  const std::uint64_t number = scanner.number(10);
  if (scanner.failed() || number > UINT32_MAX) return false;
  id = static_cast<std::uint32_t>(number);
  return true;
}

}  // namespace hwcalc
