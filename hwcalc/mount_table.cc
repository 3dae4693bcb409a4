#include "hwcalc/mount_table.h"

#include "expand/strings.h"

namespace hwcalc {

namespace {

bool isOctal(char c) { return c >= '0' && c <= '7'; }

std::string unescaped(const std::string& field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const bool escape = field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
                        isOctal(field[i + 2]) && isOctal(field[i + 3]);
    if (!escape) {
      text += field[i];
      continue;
    }
    text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                              (field[i + 3] - '0'));
    i += 3;
  }
  return text;
}

std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  for (const std::string& field : Expand::split(" \t\r", line, 0)) {
    if (!field.empty()) fields.push_back(unescaped(field));
  }
  return fields;
}

}  // namespace

std::vector<MountEntry> parseMountTable(const std::string& text) {
  std::vector<MountEntry> entries;
  for (const std::string& line : Expand::split("\n", text, 0)) {
    std::vector<std::string> fields = fieldsOf(line);
    if (fields.size() < 3 || fields[0][0] == '#') continue;
    fields.resize(4);
    entries.push_back({fields[0], fields[1], fields[2], fields[3]});
  }
  return entries;
}

}  // namespace hwcalc
